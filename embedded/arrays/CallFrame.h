// The arrays that belong to one running host call.
#pragma once

#include <cstddef>

struct vxArray_tag;

namespace vantik::detail {

// Made on the stack for the length of one host call; frames of a thread nest. Every array that the thread makes while
// the frame is the innermost one is on its list, until it is destroyed, made persistent or handed out.
class CallFrame {
public:
    CallFrame() noexcept;
    ~CallFrame(); // destroys what is left on the list, newest first
    CallFrame(const CallFrame&) = delete;
    CallFrame& operator=(const CallFrame&) = delete;

    // Takes a result off this frame: it belongs to the enclosing call from now on, or to nobody but its receiver when
    // this is the outermost one. Arrays that are not on this frame stay as they are; null is allowed.
    void handOut(vxArray_tag* result) noexcept;

    // The calling thread's innermost frame; null outside every host call.
    static CallFrame* current() noexcept;

    // How many arrays all frames of this process have destroyed because nothing else did.
    static std::size_t reclaimed() noexcept;

    // Both take constant time. An array that is on a frame's list already is not linked again; an array that is on none
    // may be unlinked.
    void link(vxArray_tag* array) noexcept;
    static void unlink(vxArray_tag* array) noexcept;

private:
    vxArray_tag* Newest = nullptr; // head of the list; the links are in the handles
    CallFrame* Enclosing;          // null: outermost
};

} // namespace vantik::detail
