#!/usr/bin/env python3
"""The smallest useful host: raw RGB frames from standard input through one analyzer, objects as lines.

usage: minimal_host.py ANALYZER WIDTH HEIGHT [LEARNING_FRAMES] < FRAMES
"""
import os
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ET

DEVICE, ANALYZER_ID = 1, 1


def start(analyzer, root, learning_frames):
    """An analyzer whose control file lives below `root`; its start-up reply has been read."""
    directory = os.path.join(root, f"opt/tesra/var/conf/{DEVICE}")
    os.makedirs(directory)
    with open(os.path.join(directory, "qelparams2.conf"), "w") as control:
        control.write(f'<param name="-bgframes" value="{learning_frames}"/>\n')
    process = subprocess.Popen([analyzer, "COLOR", "STREAMING", str(DEVICE), str(ANALYZER_ID)], stdin=subprocess.PIPE,
                               stdout=subprocess.PIPE, env=dict(os.environ, FLEIFEISA_ROOT=root))
    headers, _ = read_reply(process.stdout)
    if headers.get("Status") != "OK":
        sys.exit(f"The analyzer does not start: {headers}")
    return process


def send(stream, headers, body=b""):
    lines = ["ANALYTICS.CARTRIDGE"] + [f"{name}: {value}" for name, value in headers.items()] + ["", ""]
    stream.write("\r\n".join(lines).encode() + body)
    stream.flush()


def read_reply(stream):
    """Headers and document of one reply."""
    headers = {}
    while (line := stream.readline()) not in (b"\r\n", b""):
        name, _, value = line.decode().partition(":")
        headers[name] = value.strip()
    if not line:
        sys.exit("The analyzer has ended.")
    return headers, stream.read(int(headers.get("Content-Length", 0)))


def main():
    analyzer, width, height = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
    learning_frames = int(sys.argv[4]) if len(sys.argv) > 4 else 300
    size, number = width * height * 3, 0
    with tempfile.TemporaryDirectory() as root:
        process = start(analyzer, root, learning_frames)
        while len(pixels := sys.stdin.buffer.read(size)) == size:
            number += 1
            send(process.stdin, {"Content-Type": "image/rgb", "Content-Length": size, "Image-width": width,
                                 "Image-height": height, "Timestamp": number, "Sequence-Number": number}, pixels)
            headers, document = read_reply(process.stdout)
            if headers["Status"] != "OK":
                sys.exit(f"frame {number}: {headers['Status-text']}")
            for found in ET.fromstring(document).iter("OBJECT") if document else ():
                box = {name: int(value) for name, value in found.find("BOX").attrib.items()}
                print(f"frame {number}: object {found.get('OID').split('.')[2]} at left {box['X'] - box['W'] // 2}"
                      f" top {box['Y'] - box['H'] // 2}, {box['W']} x {box['H']}, {box['DENS']}%")
        send(process.stdin, {"Command": "SHUTDOWN"})
        sys.exit(process.wait())


if __name__ == "__main__":
    main()
