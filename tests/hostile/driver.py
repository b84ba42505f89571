"""Runs the analyzer over pipes and says what came out: messages, replies, one-shot and step-by-step runs."""
import os
import subprocess
import threading

PROTOCOL = b'ANALYTICS.CARTRIDGE\r\n'
START = PROTOCOL + b'Status: OK\r\n\r\n'
SHUTDOWN = PROTOCOL + b'Command: SHUTDOWN\r\n\r\n'
TIME_LIMIT = 60  # seconds until a run counts as hanging
RSS_LIMIT = 96 << 20  # bytes; a sound run over small frames takes a few MB


class Failed(Exception):
    pass


def message(*headers, body=b''):
    return PROTOCOL + b''.join(h.encode('latin-1') + b'\r\n' for h in headers) + b'\r\n' + body


def frame(seq, width=8, height=8, body=None, stamp=None, level=90):
    """A sound frame; its timestamp is its number unless another is given."""
    if body is None:
        body = bytes([level]) * (max(width, 0) * max(height, 0) * 3)
    return message('Content-Type: image/rgb', 'Content-Length: %d' % len(body), 'Image-width: %d' % width,
                   'Image-height: %d' % height, 'Timestamp: %s' % (seq if stamp is None else stamp),
                   'Sequence-Number: %d' % seq, body=body)


def ok(seq, stamp=None):
    stamp = ' %s' % seq if stamp is None else stamp
    return PROTOCOL + b'Status: OK\r\nTimestamp:%s\r\nSequence-Number:%d\r\n\r\n' % (stamp.encode(), seq)


def empty_analytics(seq):
    return PROTOCOL + b'Status: OK\r\nTimestamp: %d\r\nSequence-Number: %d\r\n\r\n' % (seq, seq)


def error(text):
    text = text if isinstance(text, bytes) else text.encode()
    return PROTOCOL + b'Status: ERROR\r\nStatus-text: ' + text + b'\r\n\r\n'


def number_error(text, stamp='', seq=0):
    return PROTOCOL + b'Status: ERROR\r\nStatus-text: << %s\r\nTimestamp: %s\r\nSequence-Number: %d\r\n\r\n' % (
        text.encode(), stamp.encode(), seq)


def unknown(line):
    """The reply to a first line that is none; a line is seen up to its first NUL, without its newline."""
    line = line.split(b'\0')[0]
    return b'' if line in (b' ', b'\t') else error(b'Unknown command ' + line + b', expecting ANALYZER.CARTRIDGE')


class Root:
    """A directory in place of / for the control file of device 3."""

    def __init__(self, path, content=b'<param name="-bgframes" value="300"/>\n'):
        self.path, self.stamp = path, 1000000000
        self.conf = os.path.join(path, 'opt/tesra/var/conf/3/qelparams2.conf')
        os.makedirs(os.path.dirname(self.conf))
        if content is not None:
            self.write(content)

    def write(self, content):
        with open(self.conf, 'wb') as f:
            f.write(content)
        self.touch()

    def touch(self):
        self.stamp += 10
        os.utime(self.conf, (self.stamp, self.stamp))


class Analyzer:
    def __init__(self, exe, check_memory=True):
        self.exe, self.check_memory = exe, check_memory

    def start(self, root, args=('COLOR', 'STREAMING', '3', '5'), **streams):
        env = dict(os.environ, FLEIFEISA_ROOT=root.path)
        pipes = dict(stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        return subprocess.Popen([self.exe, *args], env=env, bufsize=0, **{**pipes, **streams})

    def end(self, p):
        """Waits for the end: the exit status, and the most memory that was resident, bytes."""
        timer = threading.Timer(TIME_LIMIT, p.kill)
        timer.start()
        _, status, usage = os.wait4(p.pid, 0)
        timer.cancel()
        p.returncode = os.waitstatus_to_exitcode(status)
        if p.returncode == -9:
            raise Failed('the analyzer hangs')
        if self.check_memory and usage.ru_maxrss * 1024 > RSS_LIMIT:
            raise Failed('%d MB were resident' % (usage.ru_maxrss >> 10))
        return p.returncode

    def run(self, root, data, **start):
        """Feeds all of `data` (bytes, or pieces of them) at once: (status, output, standard error)."""
        p = self.start(root, **start)
        out = {}
        readers = [threading.Thread(target=lambda n=n, s=s: out.update({n: s.read()}))
                   for n, s in (('out', p.stdout), ('err', p.stderr))]
        for r in readers:
            r.start()
        try:
            for piece in [data] if isinstance(data, bytes) else data:
                view = memoryview(piece)
                while view:
                    view = view[p.stdin.write(view):]
            p.stdin.close()
        except BrokenPipeError:
            pass
        status = self.end(p)
        for r in readers:
            r.join()
        return status, out['out'], out['err']


class Conversation:
    """Message by message, each reply awaited."""

    def __init__(self, analyzer, root, **start):
        self.analyzer, self.p = analyzer, analyzer.start(root, stderr=subprocess.DEVNULL, **start)
        self.pending = b''
        self.timer = threading.Timer(TIME_LIMIT, self.p.kill)
        self.timer.start()

    def expect(self, what, wanted):
        got = self.reply()
        if got != wanted:
            raise Failed('%s: got %r, not %r' % (what, got, wanted))

    def send(self, data):
        self.p.stdin.write(data)

    def reply(self):
        while b'\r\n\r\n' not in self.pending:
            self.more()
        end = self.pending.index(b'\r\n\r\n') + 4
        for line in self.pending[:end].split(b'\r\n'):
            if line.lower().startswith(b'content-length:'):
                end += int(line.split(b':')[1])
        while len(self.pending) < end:
            self.more()
        got, self.pending = self.pending[:end], self.pending[end:]
        return got

    def more(self):
        piece = os.read(self.p.stdout.fileno(), 65536)
        if not piece:
            raise Failed('the analyzer ended or hung; last output %r' % self.pending)
        self.pending += piece

    def close(self):
        self.send(SHUTDOWN)
        status = self.analyzer.end(self.p)
        self.timer.cancel()
        if status != 0:
            raise Failed('exit status %d' % status)
