"""The servers that are measured, and the processors that they and their clients run on."""

import contextlib
import os
import pathlib
import resource
import socket
import subprocess
import sys
import time

PROCESSORS = sorted(os.sched_getaffinity(0))
SERVER, CLIENT = {PROCESSORS[0]}, {PROCESSORS[-1]}
ALL = set(PROCESSORS)
P256 = ["ec", "-pkeyopt", "ec_paramgen_curve:P-256"]

NGINX = """
{user}
daemon off;
worker_processes 1;
worker_rlimit_nofile {files};
pid "{directory}/nginx.pid";
error_log stderr crit;
events {{ worker_connections {connections}; }}
http {{
  access_log off;
  sendfile on;
  client_body_temp_path "{directory}/nginx-bodies";
  proxy_temp_path "{directory}/nginx-proxy";
  fastcgi_temp_path "{directory}/nginx-fastcgi";
  uwsgi_temp_path "{directory}/nginx-uwsgi";
  scgi_temp_path "{directory}/nginx-scgi";
{lines}
}}
"""


def run(command, processors=ALL, **options):
    """Runs `command` to its end on `processors` and returns its standard output."""
    return subprocess.run([str(part) for part in command], check=True, text=True,
                          stdout=options.pop("stdout", subprocess.PIPE),
                          preexec_fn=lambda: os.sched_setaffinity(0, processors), **options).stdout


def start(command, **options):
    """A server, on the servers' processor."""
    return subprocess.Popen([str(part) for part in command], text=True,
                            preexec_fn=lambda: os.sched_setaffinity(0, SERVER), **options)


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def certificate(directory, name, kind=P256):
    """A certificate for 127.0.0.1 that its own key has signed, and that key."""
    path, key = directory / f"{name}.pem", directory / f"{name}.key"
    if not path.exists():
        run(["openssl", "req", "-x509", "-newkey", *kind, "-nodes", "-days", "2", "-subj",
             f"/CN={name}", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", key, "-out", path],
            stderr=subprocess.DEVNULL)
    return path, key


def nginx_conf(directory, lines, connections=1024):
    """A configuration with one worker; `lines` stand in the http block."""
    files = min(2 * connections, resource.getrlimit(resource.RLIMIT_NOFILE)[1])
    return NGINX.format(user="user root root;" if os.geteuid() == 0 else "", directory=directory,
                        lines=lines, connections=connections, files=files)


def start_nginx(directory, port):
    """nginx with the directory's nginx.conf, once it listens at `port` or has ended."""
    server = start(["/usr/sbin/nginx", "-p", directory, "-c", directory / "nginx.conf",
                    "-e", "stderr"])
    while server.poll() is None:
        with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", port), 1):
            break
        time.sleep(0.02)
    return server


@contextlib.contextmanager
def nginx(directory, count, configure):
    """nginx with the configuration that `configure` makes of `count` ports; the ports and nginx."""
    for _ in range(5):  # a port that was free a moment ago may be taken
        ports = [free_port() for _ in range(count)]
        (directory / "nginx.conf").write_text(configure(ports))
        server = start_nginx(directory, ports[-1])
        if server.poll() is None:
            try:
                yield ports, server
            finally:
                server.terminate()
                server.wait()
            return
    sys.exit("bench: nginx does not start")


@contextlib.contextmanager
def discarding(build, *delay):
    """LumBenchServer, which runs as long as its standard input is open: its port."""
    server = start([build / "bin/LumBenchServer", *delay], stdin=subprocess.PIPE,
                   stdout=subprocess.PIPE)
    try:
        yield int(server.stdout.readline())
    finally:
        server.stdin.close()
        server.wait()


@contextlib.contextmanager
def lumbackend(build, root, *options):
    """The back end without tokens: its URLs by scheme, and its process."""
    server = start([build / "bin/lumbackend", "--root", root, "--port", 0, "--tls-port", 0,
                    "--open", *options], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    try:
        places = dict(server.stdout.readline().split() for _ in range(2))
        yield {scheme: f"{scheme}://{place}" for scheme, place in places.items()}, server
    finally:
        server.terminate()
        server.wait()


def with_children(pid):
    children = pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text()
    return [pid, *(int(child) for child in children.split())]


def resident(pid):
    """Bytes of a process with its children."""
    return sum(int(line.split()[1]) * 1024 for each in with_children(pid)
               for line in pathlib.Path(f"/proc/{each}/status").read_text().splitlines()
               if line.startswith("VmRSS:"))
