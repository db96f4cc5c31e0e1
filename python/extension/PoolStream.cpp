#include "python/extension/PoolStream.h"

#include "python/extension/Failures.h"

#include <algorithm>
#include <new>
#include <stop_token>
#include <utility>

namespace netrove::python {

namespace {

class StreamJob {
public:
    StreamJob(std::shared_ptr<Reception> to, Request asked, std::stop_token closing)
        : To(std::move(to)), Asked(std::move(asked)), Closing(std::move(closing)) {}
    // The pool drops what waits without a word.
    ~StreamJob() {
        if (!Begun) {
            To->fail(std::make_exception_ptr(
                Error(ErrorKind::Interrupted, "NETROVE:client:Interrupted", {}, "interrupted")));
        }
    }
    StreamJob(const StreamJob&) = delete;
    StreamJob& operator=(const StreamJob&) = delete;

    void run(Client& client) {
        Begun = true;
        const std::stop_callback stop(Closing, [this] { To->stop(); });
        To->receive(client, std::move(Asked));
    }

private:
    std::shared_ptr<Reception> To;
    Request Asked;
    std::stop_token Closing;
    bool Begun = false;
};

} // namespace

PoolStream::PoolStream(PoolCore& pool, const Settings& settings) : Shared(std::make_shared<Reception>()) {
    const auto job = std::make_shared<StreamJob>(Shared, settings.Asked, pool.closing());
    pool.open().submit(settings.Asked.url, [job](Client& client) { job->run(client); });
}

PoolStream::~PoolStream() {
    if (Generation == processGeneration()) {
        close();
    } else { // the parent's thread may have held its lock
        static_cast<void>(new (std::nothrow) std::shared_ptr<Reception>(std::move(Shared)));
    }
}

int PoolStream::descriptor() const {
    return Shared->changed().descriptor();
}

py::object PoolStream::head() {
    requireOwnProcess(Generation);
    Shared->changed().clear();
    return raisingInPython([this]() -> py::object {
        std::optional<Response> head = Shared->head();
        return head ? py::cast(*std::move(head)) : py::none();
    });
}

py::object PoolStream::next(std::size_t most) {
    requireOwnProcess(Generation);
    if (Closed) {
        return py::bytes();
    }
    if (Given == Piece.size()) {
        Given = 0;
        Shared->changed().clear();
        if (!raisingInPython([this] { return Shared->next(Piece); })) {
            return py::none();
        }
    }
    const std::size_t count = std::min(most, Piece.size() - Given);
    py::object result = py::bytes(Piece.data() + Given, count);
    Given += count;
    return result;
}

void PoolStream::close() {
    requireOwnProcess(Generation);
    Closed = true;
    Shared->stop();
}

void definePoolStream(py::module_& module) {
    py::class_<PoolStream>(module, "PoolStream")
        .def(py::init<PoolCore&, const Settings&>())
        .def_property_readonly("descriptor", &PoolStream::descriptor)
        .def("head", &PoolStream::head)
        .def("next", &PoolStream::next)
        .def("close", &PoolStream::close);
}

} // namespace netrove::python
