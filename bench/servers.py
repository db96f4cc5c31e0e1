"""The servers of the measurements, each on the CPUs that it is given."""
import contextlib
import ctypes
import http.client
import os
import pathlib
import signal
import socket
import subprocess

from jobs import KIB, expect


PERIOD = bytes((at * 7 + (at >> 8) * 13) & 255 for at in range(251 * KIB))


def content_of(size):  # bench/Content.h makes the same
    return (PERIOD * (size // len(PERIOD) + 1))[:size]


def pinned(cpus):
    def prepare():
        os.sched_setaffinity(0, cpus)
        ctypes.CDLL(None).prctl(1, signal.SIGKILL)  # PR_SET_PDEATHSIG
    return prepare


class Server:
    """The project's own, on one CPU."""

    def __init__(self, programs, cpus):
        self.process = subprocess.Popen([programs / "netrove_bench_server"], stdout=subprocess.PIPE, text=True,
                                        preexec_fn=pinned(cpus))
        self.port = int(self.process.stdout.readline())

    def url(self, size):
        return f"http://127.0.0.1:{self.port}/{size}"

    def cpu(self):
        connection = http.client.HTTPConnection("127.0.0.1", self.port)
        connection.request("GET", "/cpu")
        seconds = float(connection.getresponse().read())
        connection.close()
        return seconds

    def stop(self):
        self.process.kill()
        self.process.wait()


class TlsServer:
    """nginx, which knows HTTP/2."""

    def __init__(self, folder, http2, cpus):
        self.folder, self.http2 = folder, http2
        folder.mkdir()
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
                        "-nodes", "-days", "2", "-subj", "/CN=127.0.0.1", "-keyout", folder / "key", "-out",
                        folder / "certificate"], check=True, capture_output=True)
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            self.port = probe.getsockname()[1]
        (folder / "nginx.conf").write_text(f"""
            {"user root root;" if os.geteuid() == 0 else ""}
            daemon off; master_process off; pid {folder}/pid; error_log {folder}/errors;
            events {{}}
            http {{
              log_format protocol $server_protocol; access_log {folder}/protocols protocol;
              keepalive_requests 1000000; client_body_temp_path {folder}/body; proxy_temp_path {folder}/proxy;
              fastcgi_temp_path {folder}/fastcgi; uwsgi_temp_path {folder}/uwsgi; scgi_temp_path {folder}/scgi;
              server {{
                listen 127.0.0.1:{self.port} ssl {"http2" if http2 else ""};
                ssl_certificate {folder}/certificate; ssl_certificate_key {folder}/key; root {folder};
              }}
            }}""")
        self.process = subprocess.Popen(["/usr/sbin/nginx", "-c", folder / "nginx.conf", "-e", folder / "errors"],
                                        preexec_fn=pinned(cpus))
        while self.process.poll() is None:
            with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", self.port)):
                return
        raise SystemExit(f"nginx does not start: {(folder / 'errors').read_text()}")

    def url(self, size):
        file = self.folder / str(size)
        if not file.exists():
            file.write_bytes(content_of(size))
        return f"https://127.0.0.1:{self.port}/{size}"

    def cpu(self):
        return int(pathlib.Path(f"/proc/{self.process.pid}/schedstat").read_text().split()[0]) / 1e9

    def check(self):
        """That what was measured is the protocol that the table names."""
        spoken = set((self.folder / "protocols").read_text().split())
        expect(spoken == {"HTTP/2.0" if self.http2 else "HTTP/1.1"}, f"nginx was spoken to by {spoken}")

    def stop(self):
        self.process.kill()
        self.process.wait()
