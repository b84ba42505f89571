#!/usr/bin/env python3
"""Hostile input through the real analyzer: what comes back byte for byte, and that the next sound message is answered.
Single messages (headers without values, numbers out of range ...) are the table of streaming_test.cpp.

  hostile.py ANALYZER [CASE...]      FLEIFEISA_NO_RSS_CHECK=1: do not check memory (sanitizer builds)
"""
import os
import random
import subprocess
import sys
import tempfile
import threading

from driver import (PROTOCOL, SHUTDOWN, START, Analyzer, Conversation, Failed, Root, empty_analytics,
                    error, frame, message, number_error, ok, unknown)

CASES = []


def case(function):
    CASES.append(function)
    return function


def check(analyzer, root, data, output, status=0, says=None, name='', **start):
    got_status, got, err = analyzer.run(root, data, **start)
    if got != START + output:
        raise Failed('%s: got\n  %r, not\n  %r' % (name, got[-600:], (START + output)[-600:]))
    if got_status != status:
        raise Failed('%s: exit status %d, not %d; standard error %r' % (name, got_status, status, err[-300:]))
    if says is not None and says not in err:
        raise Failed('%s: %r is not on standard error: %r' % (name, says, err[-300:]))


def between(analyzer, root, bad, replies, name=''):
    """Something bad between two sound frames: both are answered, with the same counters as without it."""
    check(analyzer, root, [frame(1), bad, frame(2), SHUTDOWN], ok(1) + replies + ok(2), name=name)


# --- ends and lines ---

@case
def end_at_every_byte(analyzer, root):
    cut = message('Timestamp: 5', 'Sequence-Number: 6', 'Image-width: 8', 'Image-height: 8', 'Content-Type: image/rgb',
                  'Content-Length: 192', body=b'p' * 192)
    length = cut.index(b'Content-Length: ') + len(b'Content-Length: ')
    texts = {b'Sequence-Number': 'Sequence num', b'Image-width': 'Image width', b'Image-height': 'Image height',
             b'Content-Length': 'Content length'}
    for p in range(len(cut) + 1):
        replies, status, says = b'', 0, b''
        bare = [name for name in texts if cut[:p].endswith((name, name + b':'))]  # a name without a value
        if 0 < p < 19:
            replies = unknown(cut[:p])
        elif bare:
            replies = number_error(texts[bare[0]] + ' invalid.', ' 5', 0 if bare[0] == b'Sequence-Number' else 6)
        elif length < p < len(cut):  # a length has been announced
            status, says = 1, b'The input ended inside a message body.'
        elif p == len(cut):
            replies = ok(6, ' 5')
        check(analyzer, root, frame(1) + cut[:p], ok(1) + replies, status, says, 'cut at byte %d' % p)


@case
def end_without_anything(analyzer, root):
    check(analyzer, root, b'', b'')
    check(analyzer, root, SHUTDOWN + frame(1), b'', name='behind SHUTDOWN')
    check(analyzer, root, SHUTDOWN[:-2], b'', name='SHUTDOWN ended by the end of input')


@case
def long_lines(analyzer, root):
    long = error('Line too long.')
    for length in (255, 300, 4096, 1 << 20):
        line = b'x' * length
        between(analyzer, root, line + b'\n', unknown(line[:254]) + long, 'first line of %d' % length)
        between(analyzer, root, PROTOCOL + b'Timestamp: ' + line + b'\r\n', long, 'header of %d' % length)
        # What follows the long line starts a message of its own.
        between(analyzer, root, PROTOCOL + b'Content-Length: 5\r\n' + line + b'\nabcde\n', long + unknown(b'abcde'))
        between(analyzer, root, PROTOCOL + b'Command: SHUTDOWN\r\n' + line + b'\n', long, 'a command is dropped')
        between(analyzer, root, PROTOCOL + b'Image-width:\r\n' + line + b'\n',
                number_error('Image width invalid.') + long, 'a reply that was due stays')
        check(analyzer, root, frame(1) + line, ok(1) + unknown(line[:254]) + long, name='%d at the end' % length)
    line = b'y' * 254
    between(analyzer, root, line + b'\n', unknown(line), '254 are no long line')
    stamp = b'Timestamp: '.ljust(253, b'z')
    check(analyzer, root, frame(1) + frame(2).replace(b'Timestamp: 2', stamp) + SHUTDOWN,
          ok(1) + ok(2, stamp[10:].decode()), name='a header of 254 with its carriage return')


@case
def endless_headers(analyzer, root):
    lines = b'Timestamp: 7\r\nCommand: x\r\nNonsense: y\r\n' * 20000
    check(analyzer, root, [frame(1), PROTOCOL, lines, b'\r\n', frame(2), SHUTDOWN], ok(1) + ok(2))


@case
def junk_between_messages(analyzer, root):
    rng = random.Random(4)
    for n in range(60):
        junk = bytes(rng.randrange(256) for _ in range(rng.randrange(1, 2000))).replace(b'ANALYTICS', b'?')
        lines = junk.split(b'\n')
        replies = b''.join(unknown(l[:254]) + (error('Line too long.') if len(l) > 254 else b'') for l in lines)
        between(analyzer, root, junk + b'\n', replies, 'junk %d' % n)
    for line in (b'', b' ', b'\t', b'  ', b'\0', b'analytics.cartridge', b' ANALYTICS.CARTRIDGE', b'\xff\xfe'):
        between(analyzer, root, line + b'\n', unknown(line), repr(line))


# --- bodies and images ---

@case
def large_announcements(analyzer, root):
    ended = dict(status=1, says=b'The input ended inside a message body.')
    for length in (268435456, 268435457, 2147483647):
        for kind in ('image/rgb', 'text/xml'):
            head = message('Content-Type: ' + kind, 'Content-Length: %d' % length, 'Image-width: 8', 'Image-height: 8')
            check(analyzer, root, frame(1) + head + b'few bytes', ok(1), name='%s of %d' % (kind, length), **ended)
    head = message('Content-Type: image/rgb', 'Content-Length: 268435457', 'Image-width: 8', 'Image-height: 8')
    zeros = bytes(1 << 20)
    check(analyzer, root, [frame(1), head] + [zeros] * 256 + [b'\0', frame(2), SHUTDOWN],
          ok(1) + error('Content length too large.') + ok(2), name='a body beyond the limit that arrives')
    for width, height in ((20000, 20000), (2147483647, 2147483647), (1, 89478486), (89478486, 1)):
        between(analyzer, root, frame(7, width, height, b'some bytes'), error('Image size too large.'),
                '%d x %d' % (width, height))


@case
def huge_pages(analyzer, root):
    """Where the system backs memory with huge pages by itself, arrays of which little is used must not become real."""
    os.environ['GLIBC_TUNABLES'] = 'glibc.malloc.hugetlb=1'
    try:  # every row ends in a clipped cell
        check(analyzer, root, [frame(n, 1438, 810, level=60 + n % 3) for n in range(1, 6)], b''.join(map(ok, range(1, 6))))
    finally:
        del os.environ['GLIBC_TUNABLES']


@case
def bodies_of_other_lengths(analyzer, root):
    short = b'A body is shorter than its image; the missing bytes are taken as zero.'
    check(analyzer, root, frame(1) + frame(2, body=b'x') + frame(3, body=b'x' * 191) + frame(4),
          ok(1) + ok(2) + ok(3) + ok(4), says=short)
    status, _, err = analyzer.run(root, frame(1, body=b'x') + frame(2, body=b'y'))
    if err.count(short) != 1:
        raise Failed('a short body is not reported once: %r' % err)
    check(analyzer, root, frame(1) + frame(2, body=b'x' * 5000) + frame(3), ok(1) + ok(2) + ok(3), name='long body')
    check(analyzer, root, frame(1, body=b'x') + frame(2), ok(1) + ok(2), name='a short first frame')


@case
def changed_and_odd_sizes(analyzer, root):
    other = error('Image size differs from the first frame.')
    for width, height in ((8, 9), (9, 8), (16, 4), (4, 16), (1, 1), (389, 211)):
        between(analyzer, root, frame(7, width, height), other, '%d x %d' % (width, height))
    for width, height in ((389, 211), (1, 1), (5, 7), (3, 64), (4, 1)):
        root.write(b'<param name="-bgframes" value="9"/>\n')
        frames = [frame(n, width, height, level=60 + n % 3) for n in range(1, 13)]
        check(analyzer, root, frames + [frame(13, width + 1, height), frame(14, width, height, level=61), SHUTDOWN],
              b''.join(map(ok, range(1, 10))) + b''.join(map(empty_analytics, range(10, 13))) + other +
              empty_analytics(14), name='all of %d x %d' % (width, height))


@case
def frames_without_pixels(analyzer, root):
    for width, height in ((0, 0), (0, 8), (8, 0), (-1, 8), (8, -8), (-8, -8), (-2147483648, 1),
                          (-20000, -20000), (-2147483648, -2147483648)):
        bare = frame(2, width, height, b'abc')
        check(analyzer, root, frame(1) + bare + frame(3), ok(1) + ok(2) + ok(3), name='%d x %d' % (width, height))
        root.write(b'<param name="-bgframes" value="1"/>\n')
        first = frame(1, width, height, b'abc')
        check(analyzer, root, first + bare + frame(3) + frame(4) + frame(5, 9, 9) + frame(6),
              ok(1) + empty_analytics(2) + empty_analytics(3) + empty_analytics(4) +
              error('Image size differs from the first frame.') + empty_analytics(6), name='the tracker comes later')
        root.write(b'<param name="-bgframes" value="300"/>\n')


# --- output ---

@case
def broken_output(analyzer, root):
    frames = b''.join(frame(n) for n in range(1, 400))
    for name in ('pipe', 'full'):
        p = analyzer.start(root, **({'stdout': open('/dev/full', 'wb')} if name == 'full' else {}))
        if name == 'pipe':
            p.stdout.close()
        try:
            p.stdin.write(frames)
            p.stdin.close()
        except BrokenPipeError:
            pass
        err = p.stderr.read()
        status = analyzer.end(p)
        if status != 1 or b'Cannot write to standard output.' not in err:
            raise Failed('%s: exit status %d, standard error %r' % (name, status, err))


# --- the control file ---

def detects_at(content, frames=8):
    """Which of the frames 2.. would be answered by detection, for -bgframes as a 32-bit number."""
    return b''.join(ok(n) if n == 1 or n <= content else empty_analytics(n) for n in range(1, frames + 1))


@case
def control_file_contents(analyzer, root):
    def setting(value, key='-bgframes'):
        return b'<param name="%s" value="%s"/>\n' % (key.encode(), value.encode())
    three = setting('3')
    table = [
        ('empty', b'', 300), ('zero', setting('0'), 0), ('one', setting('1'), 1), ('negative', setting('-4'), -4),
        ('enormous', setting('2147483647'), 2147483647), ('text', setting('x'), 0), ('later wins', setting('9') + three, 3),
        ('cut behind name', three + b'<param name', 3), ('cut behind the key', three + b'<param name="-bgframes', 3),
        ('cut before the value', three + b'<param name="-bgframes" value', 3),
        ('cut inside the value', b'<param name="-bgframes" value="3', 3),
        ('binary', bytes(range(256)) * 40 + b'\n' + three, 3), ('NUL bytes', b'\0' * 5000 + b'\n' + three, 3),
        ('no newlines', b'x' * 100000 + b'\n' + three, 3), ('huge', b'<!-- nothing -->\n' * 600000 + three, 3),
        ('carriage returns', three.replace(b'\n', b'\r\n'), 3),
    ]
    for value in ('nan', 'inf', '-inf', '-1', '-1e30', '1e30', '1e999', '0', '1e-45', 'x'):
        for low in (True, False):
            keys = ('-color_low', '-ir_low') if low else ('-color_high', '-ir_high')
            table.append(('%s %s' % (keys[0], value), three + b''.join(setting(value, k) for k in keys), 3))
    for name, content, learning in table:
        root.write(content)
        data = [frame(n) for n in range(1, 9)] + [SHUTDOWN]
        check(analyzer, root, data, detects_at(learning), name=name)
        check(analyzer, root, data, detects_at(learning), name=name + ', IR', args=('IR', 'STREAMING', '3', '5'))


@case
def thresholds_over_moving_frames(analyzer, root):
    """Odd thresholds during detection: every frame gets one whole reply, whatever it reports."""
    def scene(n, on):
        rows = []
        for r in range(32):
            for c in range(32):
                hit = on and 8 <= r < 20 and n % 20 <= c < n % 20 + 8
                rows.append(bytes([220 if hit else 70 + (r + c) % 5] * 3))
        return frame(n, 32, 32, b''.join(rows))
    for value in (b'nan', b'inf', b'-inf', b'-5', b'1e30', b'-1e30'):
        for kind in ('COLOR', 'IR'):
            root.write(b'<param name="-bgframes" value="10"/>\n')
            talk = Conversation(analyzer, root, args=(kind, 'STREAMING', '3', '5'))
            talk.expect('start-up', START)
            for n in range(1, 40):
                if n == 14:
                    keys = (b'-color_low', b'-ir_low') if len(value) % 2 else (b'-color_high', b'-ir_high')
                    root.write(b''.join(b'<param name="%s" value="%s"/>\n' % (k, value) for k in keys) +
                               b'<param name="-bgframes" value="4"/>\n')
                talk.send(scene(n, n > 12))
                reply = talk.reply()
                stamp = b'Timestamp: %d\r\nSequence-Number:' % n
                if not reply.startswith(PROTOCOL + b'Status: OK\r\n') or stamp not in reply:
                    raise Failed('%s, frame %d: %r' % (value, n, reply))
            talk.close()


@case
def control_files_that_are_none(analyzer, root):
    frames = [frame(n) for n in range(1, 5)] + [SHUTDOWN]
    learned = b''.join(map(ok, range(1, 5)))
    os.remove(root.conf)
    missing = error('Cannot open configuration file.')
    status, out, _ = analyzer.run(root, frames)
    if (status, out) != (0, missing + START + learned):
        raise Failed('missing: %d %r' % (status, out))
    os.mkdir(root.conf)
    check(analyzer, root, frames, learned, name='a directory')
    os.rmdir(root.conf)
    os.mkfifo(root.conf)
    check(analyzer, root, frames, learned, name='a FIFO that nobody writes')
    os.remove(root.conf)
    for target in ('/dev/zero', root.conf):
        os.symlink(target, root.conf)
        status, out, _ = analyzer.run(root, frames)
        if status != 0 or not out.endswith(START + learned):
            raise Failed('a link to %s: %d %r' % (target, status, out))
        os.remove(root.conf)
    with open(root.conf, 'wb') as f:
        f.truncate(1 << 40)  # a terabyte of nothing
    check(analyzer, root, frames, learned, name='a sparse file')
    root.write(b'<param name="-bgframes" value="2"/>\n')
    os.chmod(root.conf, 0)
    if os.geteuid() != 0:
        status, out, _ = analyzer.run(root, frames)
        if (status, out) != (0, missing + START + learned):
            raise Failed('unreadable: %d %r' % (status, out))
    os.chmod(root.conf, 0o644)


@case
def control_file_changes(analyzer, root):
    """A file that goes, comes, becomes a directory, turns unreadable: what is in force, and who is answered."""
    root.write(b'<param name="-bgframes" value="2"/>\n')
    talk = Conversation(analyzer, root)
    talk.expect('start-up', START)
    number = 0

    def step(what, *replies):
        nonlocal number
        for reply in replies:
            number += 1
            talk.send(frame(number))
            talk.expect('%s, frame %d' % (what, number), reply(number))
        # The test of the control file follows the answer: an answered line behind it says that it is over.
        talk.send(b'junk\n')
        talk.expect(what, unknown(b'junk'))

    step('start', ok, ok, empty_analytics)
    os.remove(root.conf)
    step('gone: the parameters stay', empty_analytics, empty_analytics)
    root.write(b'<param name="-bgframes" value="4"/>\n')
    step('back: a change', empty_analytics, ok, ok, empty_analytics)
    os.remove(root.conf)
    os.mkdir(root.conf)
    step('a directory: defaults, so 300 frames of relearning', empty_analytics, ok)
    os.rmdir(root.conf)
    root.write(b'<param name="-bgframes" value="-1"/>\n')
    step('negative: learned for ever', ok, ok, ok, ok)
    root.write(b'<param name="-bgframes" value="0"/>\n')
    step('zero: no relearning', ok, empty_analytics, empty_analytics)
    talk.close()


@case
def control_file_rewritten_all_the_time(analyzer, root):
    stop = threading.Event()

    def rewrite():
        rng = random.Random(1)
        while not stop.is_set():
            with open(root.conf, 'wb') as f:
                for _ in range(rng.randrange(40)):
                    f.write(b'<param name="-bgframes" value="%d"/>\n' % rng.randrange(6))
                    f.flush()
            root.touch()
    writer = threading.Thread(target=rewrite)
    talk = Conversation(analyzer, root)
    talk.expect('start-up', START)
    writer.start()
    try:
        for n in range(1, 1500):
            talk.send(frame(n))
            reply = talk.reply()
            if reply not in (ok(n), empty_analytics(n)):
                raise Failed('frame %d: %r' % (n, reply))
    finally:
        stop.set()
        writer.join()
    talk.close()


# --- confinement ---

@case
def confined_while_it_runs(analyzer, root):
    """Where the kernel can and nobody asked for less: a filter holds, and no new privileges."""
    talk = Conversation(analyzer, root)
    talk.expect('start-up', START)
    talk.send(frame(1))
    talk.expect('first frame', ok(1))
    with open('/proc/%d/status' % talk.p.pid) as f:
        status = dict(line.rstrip('\n').split(':\t', 1) for line in f if ':\t' in line)
    talk.close()
    if os.environ.get('FLEIFEISA_SANDBOX') == 'off' or not analyzer.check_memory:
        return  # sanitizer builds run unconfined
    if status.get('Seccomp') != '2' or status.get('NoNewPrivs') != '1':
        raise Failed('Seccomp %s, NoNewPrivs %s' % (status.get('Seccomp'), status.get('NoNewPrivs')))


# --- arguments ---

@case
def long_arguments(analyzer, root):
    long = 'A' * 5000
    check(analyzer, root, frame(1), ok(1), args=('IR', 'STREAMING' + long, '3' + long, '9' * 5000))
    status, out, _ = analyzer.run(root, frame(1), args=(long, 'STREAMING', '3', '5'))
    if (status, out) != (0, error('Type must be COLOR or IR.') + START + ok(1)):
        raise Failed('a long type: %d %r' % (status, out))


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    analyzer = Analyzer(os.path.realpath(sys.argv[1]), 'FLEIFEISA_NO_RSS_CHECK' not in os.environ)
    wanted, failed = sys.argv[2:], 0
    for function in CASES:
        if wanted and function.__name__ not in wanted:
            continue
        with tempfile.TemporaryDirectory(prefix='fleifeisa-hostile-') as path:
            try:
                function(analyzer, Root(os.path.join(path, 'root')))
                print('passed', function.__name__)
            except Failed as e:
                failed += 1
                print('FAILED', function.__name__ + ':', e)
    sys.exit(1 if failed else 0)


main()
