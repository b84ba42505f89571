#!/usr/bin/env python3
"""Replays the examples of docs/*.md against the analyzer and compares every byte.

usage: docs_test.py ANALYZER SOURCE_DIR

Fenced blocks whose first word is control, request, reply or stderr and which name an example belong together, in order.
docs/protocol.md says how they are written. An example begins with an empty control file unless a control block comes
first; the process sees the end of its input behind the last block.
"""
import os
import re
import select
import shlex
import subprocess
import sys
import tempfile
import time

STARTUP = b"ANALYTICS.CARTRIDGE\r\nStatus: OK\r\n\r\n"
ESCAPES = {"r": b"\r", "n": b"\n", "t": b"\t", "\\": b"\\", "{": b"{"}
TOKEN = re.compile(r"\\x([0-9a-fA-F]{2})|\\(.)|\{([^}]*)\}|([^\\{]+)")
DEADLINE = 60  # seconds that a reply may take; far more than any takes


def image(drawing):
    size, *patches = [part.split() for part in drawing.split(";")]
    width, height = map(int, size[0].split("x"))
    pixels = bytearray([int(size[1])]) * (width * height * 3)
    for rows, columns, value in patches:
        (r0, r1), (c0, c1) = (map(int, span.split("-")) for span in (rows, columns))
        for r in range(r0, r1 + 1):
            at = (r * width + c0) * 3
            pixels[at:at + (c1 - c0 + 1) * 3] = bytes([int(value)]) * ((c1 - c0 + 1) * 3)
    return bytes(pixels)


def expand(text, n=None):
    """The bytes that the lines of a block stand for."""
    out = b""
    for hexa, escape, braces, plain in TOKEN.findall(text.replace("\n", "")):
        if hexa:
            out += bytes([int(hexa, 16)])
        elif escape:
            out += ESCAPES[escape]
        elif braces == "n":
            out += str(n).encode()
        elif braces.startswith("image "):
            out += image(braces[6:])
        elif braces:
            count, what = braces.split(" x ")
            out += expand(what) * int(count)
        else:
            out += plain.encode()
    return out


def blocks(path):
    """(line, kind, attributes, text) of every block that belongs to an example."""
    kind = None
    with open(path, encoding="utf-8") as f:
        for number, line in enumerate(f, 1):
            if kind is None and line.startswith("```"):
                words = shlex.split(line[3:])
                kind = words[0] if words else ""
                start, text = number, ""
                attributes = dict(word.partition("=")[::2] for word in words[1:])
            elif line.startswith("```"):
                if kind in ("control", "request", "reply", "stderr"):
                    yield start, kind, attributes, text
                kind = None
            elif kind is not None:
                text += line


class Example:
    """One analyzer process, fed and compared block by block."""

    def __init__(self, analyzer, root, args):
        self.root = root
        self.directory = os.path.join(root, "opt/tesra/var/conf", args.split()[2])
        os.makedirs(self.directory)
        self.mtime = 1300000000
        self.analyzer, self.args = analyzer, args
        self.process = None
        self.status = 0
        self.control("")

    def control(self, text):
        path = os.path.join(self.directory, "qelparams2.conf")
        if text is None:
            os.remove(path)
            return
        with open(path + ".new", "w", encoding="utf-8") as f:
            f.write(text)
        self.mtime += 1  # the analyzer sees whole seconds
        os.utime(path + ".new", (self.mtime, self.mtime))
        os.rename(path + ".new", path)

    def start(self):
        self.process = subprocess.Popen([self.analyzer] + self.args.split(), stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                        env=dict(os.environ, FLEIFEISA_ROOT=self.root))

    def send(self, data):
        self.process.stdin.write(data)
        self.process.stdin.flush()

    def receive(self, length):
        fd, data, until = self.process.stdout.fileno(), b"", time.monotonic() + DEADLINE
        while len(data) < length and select.select([fd], [], [], max(0, until - time.monotonic()))[0]:
            piece = os.read(fd, length - len(data))
            if not piece:
                break
            data += piece
        return data

    def finish(self):
        self.process.stdin.close()
        rest, errors = self.process.stdout.read(), self.process.stderr.read()
        self.process.stdout.close()
        self.process.stderr.close()
        return rest, errors, self.process.wait(DEADLINE)


def counted(attributes):
    if "repeat" not in attributes:
        return [None]
    first, last = map(int, attributes["repeat"].split("-"))
    return range(first, last + 1)


def replay(analyzer, steps):
    """Complaints about one example."""
    complaints = []

    def compare(line, what, got, expected):
        if got != expected:
            complaints.append(f"line {line}: {what}\n  expected {expected!r}\n  got      {got!r}")

    args = next((a["args"] for _, _, a, _ in steps if "args" in a), "COLOR STREAMING 3 5")
    with tempfile.TemporaryDirectory() as root:
        run = Example(analyzer, root, args)
        errors, status, startup = None, 0, any("startup" in a for _, _, a, _ in steps)
        if any(a.get("control") == "missing" for _, _, a, _ in steps):
            run.control(None)
        for line, kind, attributes, text in steps:
            status = int(attributes.get("exit", status))
            if kind == "control":
                run.control(text)
                continue
            if run.process is None:
                run.start()
                if not startup:
                    compare(line, "start-up reply", run.receive(len(STARTUP)), STARTUP)
            data = b"".join(expand(text, n) for n in counted(attributes))
            if kind == "request":
                run.send(data)
                if "end" in attributes:
                    run.process.stdin.close()
            elif kind == "reply":
                compare(line, "reply", run.receive(len(data)), data)
            else:
                errors = line, data
        rest, said, code = run.finish()
        compare(line, "further replies", rest, b"")
        compare(line, "exit status", code, status)
        if errors:
            # What a kernel cannot confine is said in a line that depends on the machine.
            compare(errors[0], "standard error", re.sub(rb"Sandbox: .*\n", b"", said), errors[1])
    return complaints


def learning_frames(analyzer, text):
    """With this control file, how many frames are answered before the first analytics reply."""
    with tempfile.TemporaryDirectory() as root:
        run = Example(analyzer, root, "COLOR STREAMING 3 5")
        run.control(text)
        run.start()
        run.receive(len(STARTUP))
        frame = (b"ANALYTICS.CARTRIDGE\r\nContent-Type: image/rgb\r\nContent-Length: 3\r\n"
                 b"Image-width: 1\r\nImage-height: 1\r\n\r\n\0\0\0")
        run.send(frame * 400)
        replies = run.finish()[0].split(b"\r\n\r\n")
        return next(i for i, reply in enumerate(replies) if reply.endswith(b"Sequence-Number: 0"))


def table_of_settings(path):
    """(line, control file text, frames) of the rows behind the mark 'test: learning frames'."""
    active = False
    with open(path, encoding="utf-8") as f:
        for number, line in enumerate(f, 1):
            if "test: learning frames" in line:
                active = True
            elif active and line.startswith("| `"):
                cells = line.split("|")
                yield number, cells[1].strip().strip("`"), int(cells[2])
            elif active and not line.startswith("|") and line.strip():
                active = False


def run_minimal_host(analyzer, source):
    """The host of docs/examples on a square that moves over a grey ground."""
    frames = b"".join(image("64x48 90") for _ in range(20))
    frames += b"".join(image(f"64x48 90; 16-31 {c}-{c + 11} 200") for c in (12, 16, 20))
    host = os.path.join(source, "docs/examples/minimal_host.py")
    done = subprocess.run([sys.executable, host, analyzer, "64", "48", "20"], input=frames, capture_output=True,
                          timeout=DEADLINE)
    expected = b"".join(b"frame %d: object 1 at left %d top 12, 20 x 24, 100%%\n" % (21 + i, 8 + 4 * i)
                        for i in range(3))
    if done.returncode == 0 and done.stdout == expected:
        return []
    return [f"minimal host: status {done.returncode}\n  expected {expected!r}\n  got      {done.stdout!r}\n"
            f"  standard error {done.stderr!r}"]


def main():
    analyzer, source = os.path.abspath(sys.argv[1]), sys.argv[2]
    complaints, replayed = [], 0
    for name in ("protocol.md", "control-file.md"):
        path = os.path.join(source, "docs", name)
        examples = {}
        for step in blocks(path):
            examples.setdefault(step[2]["example"], []).append(step)
        rows = list(table_of_settings(path))
        if not examples and not rows:
            complaints.append(f"{name}: no example found")
        for example, steps in examples.items():
            complaints += [f"{name}, example {example}, {c}" for c in replay(analyzer, steps)]
        for number, setting, frames in rows:
            got = learning_frames(analyzer, setting.replace("\\n", "\n"))
            if got != frames:
                complaints.append(f"{name} line {number}: {setting!r} gives {got} learning frames, not {frames}")
        replayed += len(examples) + len(rows)
    complaints += run_minimal_host(analyzer, source)
    print("\n".join(complaints) if complaints else f"{replayed} examples and the minimal host agree")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
