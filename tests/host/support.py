"""What the camera host's end-to-end tests share: real processes, small videos, servers on the loopback address."""
import hashlib
import http.server
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time
import unittest

HOST = os.environ["FLEIFEISA_HOST"]
HAVE_FFMPEG = shutil.which("ffmpeg") is not None
needs_ffmpeg = unittest.skipUnless(HAVE_FFMPEG, "ffmpeg is not installed")


# The begin of an analyzer that a test makes up: `for number, stamp in frames(): answer(number, stamp, object(...))`.
STAND_IN = r"""
import os, sys, time
device = int(sys.argv[3])

def say(text):
    sys.stdout.buffer.write(text.encode())
    sys.stdout.buffer.flush()

def frames():
    while True:
        head, line = {}, sys.stdin.buffer.readline()
        while line.strip():
            line = sys.stdin.buffer.readline()
            name, _, value = line.decode().strip().partition(": ")
            head[name] = value
        if not line or "Command" in head: raise SystemExit(0)
        sys.stdin.buffer.read(int(head.get("Content-Length", 0)))
        if "Sequence-Number" in head: yield int(head["Sequence-Number"]), head["Timestamp"]

def object(id="3", x="20", y="20", w="16", h="8", density="50"):
    return (f'<OBJECT OID="1.1.{id}">\n<BOX X="{x}" Y="{y}" W="{w}" H="{h}" DENS="{density}"/>\n<SHAPE>\n</SHAPE>\n</OBJECT>')

def answer(number, stamp, *objects):
    body = ""
    if objects:
        body = (f'<ANALYTICS>\n<FRAME DEVID="1" TIMESTAMP=" {stamp}" SEQ="{number}"/>\n<TRACKING ANALYZERID="1">' +
                "".join(objects) + "</TRACKING>\n</ANALYTICS>\n")
    say("ANALYTICS.CARTRIDGE\r\nStatus: OK\r\n" + (f"Content-Length: {len(body)}\r\n" if body else "") +
        f"Timestamp: {stamp}\r\nSequence-Number: {number}\r\n\r\n" + body)

say("ANALYTICS.CARTRIDGE\r\nStatus: OK\r\n\r\n")
"""


class HostTest(unittest.TestCase):
    """Each test gets an empty directory and runs the host in it."""

    def setUp(self):
        self.dir = pathlib.Path(tempfile.mkdtemp(prefix="fleifeisa-test-"))
        self.addCleanup(shutil.rmtree, self.dir, ignore_errors=True)

    def host(self, *args, timeout=60, expect=0):
        """Runs it to its end; standard output and error as text."""
        done = subprocess.run([HOST, *map(str, args)], cwd=self.dir, timeout=timeout, text=True, errors="replace",
                              stdin=subprocess.DEVNULL, capture_output=True)
        if expect is not None:
            self.assertEqual(done.returncode, expect, done.stderr)
        return done

    def start(self, *args):
        """Starts it in the background; ended with the test whatever happens."""
        log = open(self.dir / "log.txt", "w+")
        process = subprocess.Popen([HOST, *map(str, args)], cwd=self.dir, text=True, stdin=subprocess.DEVNULL,
                                   stdout=subprocess.DEVNULL, stderr=log)

        def end():
            if process.poll() is None:
                process.kill()
            process.wait()
            log.close()
        self.addCleanup(end)
        return process

    def log(self):
        return (self.dir / "log.txt").read_text()

    def until(self, condition, what, timeout=20):
        end = time.monotonic() + timeout
        while time.monotonic() < end:
            result = condition()
            if result:
                return result
            time.sleep(0.02)
        self.fail(f"waited {timeout} s for {what}; log: {self.log() if (self.dir / 'log.txt').exists() else ''}")

    def write(self, name, text):
        path = self.dir / name
        path.write_text(text)
        return path

    def script(self, name, body):
        """An executable stand-in for the analyzer."""
        path = self.write(name, "#!/usr/bin/env python3\n" + body)
        path.chmod(0o755)
        return path

    def analyzer(self, body):
        return self.script("analyzer", STAND_IN + body)

    def ffmpeg(self, *args):
        subprocess.run(["ffmpeg", "-v", "error", "-y", *map(str, args)], cwd=self.dir, check=True, stdin=subprocess.DEVNULL)

    def video(self, name, frames=60, size="96x64", rate=10, codec=("-c:v", "mpeg4", "-q:v", "3")):
        self.ffmpeg("-f", "lavfi", "-i", f"testsrc=size={size}:rate={rate}", "-frames:v", frames, *codec, name)
        return self.dir / name

    def children(self, process, name="fleifeisa"):
        """Process ids of a running host's children with this program name."""
        found = []
        for entry in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                stat = (entry / "stat").read_text()
                argv = (entry / "cmdline").read_bytes().split(b"\0")
            except OSError:
                continue
            state, parent = stat.rsplit(")", 1)[1].split()[:2]
            if int(parent) == process.pid and state != "Z" and os.path.basename(argv[0]).decode() in (name, name + "-explain"):
                found.append((int(entry.name), [a.decode(errors="replace") for a in argv]))
        return found

    def analyzer_of(self, process, device):
        """The analyzer of one camera, once it runs."""
        def find():
            return [pid for pid, argv in self.children(process) if argv[3:4] == [str(device)]]
        return self.until(find, f"the analyzer of device {device}")[0]

    def end(self, process, number=signal.SIGTERM):
        process.send_signal(number)
        return process.wait(timeout=30)


def sequences(path):
    """Sequence numbers of a file of replies, in their order."""
    return [int(n) for n in re.findall(rb"Sequence-Number: ?(\d+)\r\n", pathlib.Path(path).read_bytes())]


def times(path):
    return [float(t) for t in re.findall(rb"\nTimestamp: ([\d.]+)\r\n", pathlib.Path(path).read_bytes())]


def recorded_frames(path):
    """Width, height and pixels of every frame in a recording: a reader of its own, from the protocol's rules."""
    data = pathlib.Path(path).read_bytes()
    frames, at = [], 0
    while at < len(data):
        end = data.index(b"\r\n\r\n", at) + 4
        header = dict(line.split(b": ", 1) for line in data[at:end].split(b"\r\n") if b": " in line)
        length = int(header.get(b"Content-Length", 0))
        if b"Recording-Reply" in header:  # the last frame's request again: its hash is that of header and pixels
            assert header[b"Recording-Reply"].split()[2].decode() == request.hexdigest(), "a hash that is wrong"
        if length:
            request = hashlib.blake2b(data[at:end + length], digest_size=32)
            frames.append((int(header[b"Image-width"]), int(header[b"Image-height"]), data[end:end + length]))
        at = end + length
    return frames


class StallingServer:
    """HTTP on the loopback address: sends `first` bytes of a file, then nothing (or closes, with `close`)."""

    def __init__(self, path, first=None, close=False):
        data = pathlib.Path(path).read_bytes()
        self.requests = 0
        self.released = threading.Event()
        outer = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                outer.requests += 1
                self.send_response(200)
                self.send_header("Content-Type", "video/mp2t")
                self.end_headers()
                try:
                    self.wfile.write(data[:first])
                    self.wfile.flush()
                    if not close:
                        outer.released.wait(60)
                except OSError:
                    pass

            def log_message(self, *args):
                pass

        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.server.daemon_threads = True
        self.url = f"http://127.0.0.1:{self.server.server_port}/stream.ts"
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def close(self):
        self.released.set()
        self.server.shutdown()
        self.server.server_close()


class RtspServer:
    """One RTSP session over TCP: what ffmpeg sends as RTP to a local port is passed on interleaved."""

    def __init__(self, video):
        self.video = str(video)
        self.transports = []
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.url = f"rtsp://127.0.0.1:{self.listener.getsockname()[1]}/camera"
        self.encoder = None
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            try:
                connection, _ = self.listener.accept()
            except OSError:
                return
            threading.Thread(target=self.serve, args=(connection,), daemon=True).start()

    def serve(self, connection):
        rtp = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        rtp.bind(("127.0.0.1", 0))
        text = b""
        try:
            while True:
                while b"\r\n\r\n" not in text:
                    chunk = connection.recv(4096)
                    if not chunk:
                        return
                    text += chunk
                request, text = text.split(b"\r\n\r\n", 1)
                lines = request.decode().split("\r\n")
                self.answer(connection, rtp, lines[0].split()[0], dict(l.split(": ", 1) for l in lines[1:] if ": " in l))
        except (OSError, ValueError):
            return
        finally:
            connection.close()
            rtp.close()

    def answer(self, connection, rtp, method, headers):
        extra, body = "", ""
        if method == "OPTIONS":
            extra = "Public: OPTIONS, DESCRIBE, SETUP, PLAY, TEARDOWN\r\n"
        elif method == "DESCRIBE":
            body = ("v=0\r\no=- 0 0 IN IP4 127.0.0.1\r\ns=test\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\n"
                    "m=video 0 RTP/AVP 26\r\na=control:track\r\n")
            extra = f"Content-Type: application/sdp\r\nContent-Length: {len(body)}\r\n"
        elif method == "SETUP":
            self.transports.append(headers["Transport"])
            extra = "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\nSession: 1\r\n"
        connection.sendall(f"RTSP/1.0 200 OK\r\nCSeq: {headers['CSeq']}\r\n{extra}\r\n{body}".encode())
        if method == "PLAY":
            self.encoder = subprocess.Popen(
                ["ffmpeg", "-v", "error", "-re", "-stream_loop", "-1", "-i", self.video, "-c:v", "mjpeg", "-huffman", "default",
                 "-force_duplicated_matrix", "1", "-pix_fmt", "yuvj420p", "-f", "rtp",
                 f"rtp://127.0.0.1:{rtp.getsockname()[1]}"],
                stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            threading.Thread(target=self.relay, args=(connection, rtp), daemon=True).start()

    @staticmethod
    def relay(connection, rtp):
        try:
            while True:
                packet = rtp.recv(65536)
                connection.sendall(b"$\0" + len(packet).to_bytes(2, "big") + packet)
        except OSError:
            pass

    def close(self):
        self.listener.close()
        if self.encoder:
            self.encoder.kill()
            self.encoder.wait()
