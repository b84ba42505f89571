"""The web server of `fleifeisa-host run`: every route against its description, rights, attacks.

    FLEIFEISA_HOST=build/release/fleifeisa-host python3 tests/host/web_test.py [-v] [Class.test]
"""
import hashlib
import http.client
import io
import json
import os
import pathlib
import random
import re
import socket
import sqlite3
import struct
import subprocess
import sys
import threading
import time
import unittest
import zipfile

import clip_runs
from support import HOST, HostTest, needs_ffmpeg

try:
    import jsonschema
except ImportError:
    jsonschema = None

SOURCE = pathlib.Path(__file__).resolve().parents[2]
API = json.loads((SOURCE / "apps/host/web/openapi.json").read_text())
PASSWORD = "correct horse battery"


def config(http_lines="", cameras=("gate", "yard"), state=True):
    text = 'root = "root"\noutputs = "out"\n' + ('state = "state"\n' if state else "")
    text += f'[http]\nlisten = "127.0.0.1:0"\n{http_lines}\n'
    for device, name in enumerate(cameras, 1):
        text += f"""[[camera]]
name = "{name}"
title = "<b>{name}</b>"
device = {device}
source = "scene:street?size=160x120&rate=20&frames=0&quiet=20&seed={device}"
live = true
control = {{ bgframes = 20 }}
outputs = ["replies"]
[[camera.zone]]
name = "all"
points = [[0.0, 0.0], [1.0, 0.0], [1.0, 1.0], [0.0, 1.0]]
"""
    return text


class WebTest(HostTest):
    def user(self, *arguments, password=PASSWORD):
        done = subprocess.run([HOST, "user", *arguments, "--state", str(self.dir / "state")], input=password + "\n", text=True,
                              capture_output=True, timeout=30)
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout.strip()

    def serve(self, *lines, **more):
        self.write("host.toml", config("\n".join(lines), **more))
        log = open(self.dir / "log.txt", "w+")
        process = subprocess.Popen([HOST, "run", "host.toml"], cwd=self.dir, text=True, stdin=subprocess.DEVNULL,
                                   stdout=subprocess.PIPE, stderr=log)

        def end():
            if process.poll() is None:
                process.kill()
            process.wait()
            process.stdout.close()
            log.close()
        self.addCleanup(end)
        address = process.stdout.readline()
        self.assertRegex(address, r":\d+/", self.log())
        self.port = int(re.search(r":(\d+)/", address).group(1))
        self.token = self.cookie = None
        return process

    def ask(self, path, method="GET", body=None, headers=(), raw=False, bearer=None):
        """Status, headers (lower case), body: of JSON what it says."""
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=20)
        sent = {"Cookie": f"fleifeisa={self.cookie}"} if self.cookie else {}
        if bearer:
            sent = {"Authorization": "Bearer " + bearer}
        if method != "GET" and self.token:
            sent["X-Fleifeisa-Token"] = self.token
        sent.update(headers)
        text = body if isinstance(body, (bytes, str)) or body is None else json.dumps(body)
        connection.request(method, path if path.startswith("/") else "/api/v1/" + path, text, sent)
        answer = connection.getresponse()
        data = answer.read()
        connection.close()
        found = {name.lower(): value for name, value in answer.getheaders()}
        if not raw and found.get("content-type") == "application/json":
            data = json.loads(data)
        return answer.status, found, data

    def get(self, path, expect=200):
        status, headers, data = self.ask(path)
        self.assertEqual(status, expect, (path, data))
        return data

    def login(self, user=None, password=PASSWORD, expect=200):
        self.cookie = self.token = None
        if user:
            status, headers, data = self.ask("session", "POST", {"user": user, "password": password})
            self.assertEqual(status, expect, data)
            if status != 200:
                return headers
            cookie = headers["set-cookie"]
            self.assertRegex(cookie, r"^fleifeisa=[\w-]{40,}; Path=/; Max-Age=\d+; HttpOnly; SameSite=Strict$")
            self.cookie = cookie.split("=", 1)[1].split(";")[0]
        self.token = self.get("session")["token"]

    def events(self, query="", least=1):
        return self.until(lambda: (lambda e: e if len(e) >= least else None)(self.get("events?" + query)["events"]),
                          "events", 40)

    def stream(self, path, headers=()):
        """A long response: the socket's file behind its header."""
        connection = socket.create_connection(("127.0.0.1", self.port), timeout=20)
        cookie = f"Cookie: fleifeisa={self.cookie}\r\n" if self.cookie else ""
        # HTTP/1.0: the body as it is, without chunks.
        connection.sendall(f"GET /api/v1/{path} HTTP/1.0\r\nHost: localhost\r\n{cookie}\r\n".encode())
        file = connection.makefile("rb")
        self.addCleanup(connection.close)
        self.addCleanup(file.close)
        status = file.readline()
        while file.readline().strip():
            pass
        return status, file

    @staticmethod
    def message(file):
        lengths = struct.unpack(">II", file.read(8))
        return json.loads(file.read(lengths[0])), file.read(lengths[1])

    def metrics(self):
        lines = self.ask("metrics")[2].decode().splitlines()
        return {name: int(value) for name, value in (line.rsplit(" ", 1) for line in lines if not line.startswith("#"))}

    def schema(self, name):
        return {"$schema": "https://json-schema.org/draft/2020-12/schema", "$ref": "#/components/schemas/" + name,
                "components": API["components"]}

    def check(self, value, name):
        if jsonschema:
            jsonschema.validate(value, self.schema(name))


class Interface(WebTest):
    def test_every_answer_is_as_it_is_described(self):
        """All routes that are described are asked, as an administrator; what comes fits the schema."""
        self.user("add", "ann", "--role", "admin")
        self.serve()
        self.login("ann")
        event = self.events("kind=zone")[0]
        self.until(lambda: self.get("visits")["visits"], "a visit")
        self.until(lambda: any(v is not None for v in self.get("cameras/gate/activity")["foreground"]), "a minute", 70)
        status, file = self.stream("pictures?view=gate:100")
        stream = self.message(file)[0]["stream"]
        values = {"camera": event["camera"], "number": str(event["number"]), "stream": stream, "user": "bob", "token": "t",
                  "zone": "all", "line": "across", "trial": "1"}
        bodies = {"Login": {"user": "ann", "password": PASSWORD}, "PasswordChange": {"old": PASSWORD, "new": PASSWORD},
                  "NewUser": {"name": "bob", "password": PASSWORD, "role": "view", "cameras": ["gate"]},
                  "UserChange": {"cameras": None}, "Token": {"name": "t"}, "Reviewed": {"events": [event["event"]], "reviewed": True},
                  "EventChange": {"keep": True, "mark": "wrong", "reviewed": True}, "Link": {"file": "picture.jpg", "hours": 1},
                  "View": {"view": [{"camera": "yard", "width": 50, "calm": True}]},
                  "ArmingChange": {"armed": False, "minutes": 5}, "Export": {"events": [event["event"]]},
                  "WhatIfQuestion": {"rule": "all", "days": 1}, "TrialQuestion": {"change": {"control": {"color_low": 0.4}}},
                  "SettingsChange": {"zone": {"all": {"dwell": 30}}, "stopped": 7}, "Undo": {"change": 1},
                  "RuleChange": {"points": [[0.1, 0.1], [0.9, 0.9]]}}
        self.ask(f"cameras/{event['camera']}/settings", "PATCH", {"motion": {"off_delay": 20}})  # what Undo takes back
        self.ask(f"cameras/{event['camera']}/trials", "POST", {"change": {}})
        order = {"post": 0, "patch": 1, "put": 2, "get": 3, "delete": 4}
        operations = [(order[method], path, method, operation) for path, item in API["paths"].items()
                      for method, operation in item.items() if method in order]
        asked = 0
        for _, path, method, operation in sorted(operations, key=lambda each: (each[0], -len(each[1]), each[1]) if each[0] == 4 else (each[0], len(each[1]), each[1])):
            if path in ("/changes", "/pictures") or (method, path) == ("delete", "/session"):
                continue
            with self.subTest(f"{method} {path}"):
                body = operation.get("requestBody", {}).get("content", {}).get("application/json", {}).get("schema")
                if body:
                    body = bodies[body["$ref"].rsplit("/", 1)[1]]
                if path.endswith("/zones/{zone}"):
                    body = {"title": "Everywhere"} if method == "put" else None
                url = re.sub(r"\{(\w+)\}", lambda m: values[m.group(1)], path.lstrip("/"))
                if method == "delete" and "events" in path:  # one that has ended
                    done = self.until(lambda: [e for e in self.get("events")["events"] if e["end_ns"]], "an ended event")[0]
                    url = f"cameras/{done['camera']}/events/{done['number']}"
                status, headers, data = self.ask(url, method.upper(), body)
                asked += 1
                media = "/events/{number}/" in path and not path.endswith("/link")
                if media and status == 404:
                    continue  # not every event has every file
                answer = operation["responses"].get(str(status))
                self.assertIsNotNone(answer, (status, data))
                self.assertLess(status, 400, data)
                content = answer.get("content", {}).get("application/json", {}).get("schema")
                if content and jsonschema:
                    jsonschema.validate(data, {**content, "components": API["components"]})
        self.assertGreater(asked, 35)

    def test_filters_and_pages(self):
        self.serve()
        self.login()
        every = self.events(least=6)
        oldest = every[-1]["start_ns"]
        pages, before = [], ""
        while True:  # two at a time, up to what was there: nothing twice, nothing left out
            page = self.get(f"events?limit=2&until={every[0]['start_ns'] + 1}" + (f"&before={before}" if before else ""))
            pages += page["events"]
            before = page["next"]
            if not before:
                break
        self.assertEqual([e["event"] for e in pages if e["start_ns"] >= oldest],
                         [e["event"] for e in every if e["start_ns"] <= every[0]["start_ns"]])
        keys = [(e["start_ns"], e["camera"] == "yard", e["number"]) for e in pages]
        self.assertEqual(keys, sorted(keys, reverse=True))
        event = next(e for e in every if e["kind"] == "zone" and e["box"])
        left, top, width, height = event["box"]
        size = event["size"]
        area = f"{left / size[0]:.4f},{top / size[1]:.4f},{(left + width) / size[0]:.4f},{(top + height) / size[1]:.4f}".replace("-", "")
        rows = (("camera=gate", lambda e: e["camera"] == "gate"), ("kind=zone,line", lambda e: e["kind"] in ("zone", "line")),
                ("rule=all", lambda e: e["rule"] == "all"), ("rule=none", lambda e: False),
                ("held=true", lambda e: e["held"]), ("reviewed=true", lambda e: False), ("keep=true", lambda e: False),
                ("camera=gate&kind=motion", lambda e: e["camera"] == "gate" and e["kind"] == "motion"),
                (f"visit={event['visit']}", lambda e: event["visit"] in (e["visit"], e["event"])),
                (f"since={event['start']}&until={event['start_ns'] + 1}", lambda e: e["start_ns"] == event["start_ns"]))
        for query, wanted in rows:
            with self.subTest(query):
                found = self.get(f"events?limit=500&{query}")["events"]
                self.assertTrue(all(wanted(e) for e in found), found)
                known = {e["event"] for e in every if wanted(e)}
                self.assertLessEqual(known, {e["event"] for e in found})
        self.assertIn(event["event"], [e["event"] for e in self.get("events?limit=500&area=" + area)["events"]])
        self.assertEqual(self.get("events?area=0,0,0,0&kind=scene")["events"], [])
        path = f"cameras/{event['camera']}/events/{event['number']}"
        self.ask(path, "PATCH", {"mark": "wrong"})
        self.assertEqual([e["event"] for e in self.get("events?mark=wrong")["events"]], [event["event"]])
        self.assertEqual([v["event"]["event"] for v in self.get("visits?mark=wrong")["visits"]], [event["visit"]])
        self.assertEqual([e["event"] for e in self.get("events?reviewed=true")["events"]], [event["event"]])
        # A visit stands for all of its events.
        self.ask("reviewed", "POST", {"events": [event["visit"]], "reviewed": True})
        seen = {e["event"] for e in self.get("events?reviewed=true&limit=500")["events"]}
        self.assertLessEqual({event["visit"], event["event"]}, seen)
        for query in ("camera=../x", "kind=what", "since=yesterday", "limit=0", "limit=501", "area=1,1,0,0", "area=nan,0,1,1",
                      "before=x", "mark=maybe", "rule=a'b", "visit=gate", "since=2026-13-01T00:00:00Z"):
            self.assertEqual(self.ask("events?" + query)[0], 400, query)

    def test_changes_come_as_they_happen_and_go_on(self):
        self.serve()
        self.login()
        status, file = self.stream("changes")

        def read(file):
            message = {}
            while (line := file.readline().decode().rstrip("\n")) or not message:
                if ": " in line and not line.startswith(":"):
                    name, _, value = line.partition(": ")
                    message[name] = value
            data = json.loads(message["data"])
            self.check(data, "Change")
            self.assertEqual(message["event"], data["type"])
            return message["id"], data
        self.assertFalse(read(file)[1]["resumed"])
        seen = {}
        while not {"event", "camera"} <= {data["type"] for data in seen.values()}:
            ident, data = read(file)
            seen[ident] = data
        numbers = [int(ident.rpartition("-")[2]) for ident in seen]
        self.assertEqual(numbers, list(range(numbers[0], numbers[0] + len(numbers))))  # nothing is left out
        last = list(seen)[0]
        _, again = self.stream("changes?after=" + last)
        self.assertTrue(read(again)[1]["resumed"])
        for ident in list(seen)[1:]:
            self.assertEqual(read(again), (ident, seen[ident]))
        _, lost = self.stream("changes?after=0-7")
        self.assertFalse(read(lost)[1]["resumed"])

    def test_pictures_belong_to_their_frames_and_cost_nothing_unwatched(self):
        self.serve()
        self.login()
        self.until(lambda: self.get("cameras/gate")["tracks"], "a track", 30)
        self.assertEqual(self.get("state")["web"]["encoded"], 0)
        self.assertEqual(self.metrics()["fleifeisa_live_pictures_total"], 0)
        viewers = [self.stream("pictures?view=gate:100,yard:160")[1] for _ in range(3)]
        for file in viewers:
            self.assertIn("stream", self.message(file)[0])
        frames = {"gate": [], "yard": []}
        while min(map(len, frames.values())) < 10:
            for file in viewers:
                head, jpeg = self.message(file)
                self.check(head, "Frame")
                self.assertEqual((jpeg[:2], jpeg[-2:]), (b"\xff\xd8", b"\xff\xd9"))
                self.assertEqual(head["picture"], [160, 120])
                frames[head["camera"]].append((head["sequence"], jpeg, head["sent_ns"]))
        for camera, found in frames.items():  # once encoded for all: the very same bytes and moment
            by_number = {}
            for number, jpeg, sent in found:
                self.assertEqual(by_number.setdefault(number, (jpeg, sent)), (jpeg, sent), camera)
        metrics = self.metrics()
        encoded = sum(len({number for number, _, _ in found}) for found in frames.values())
        self.assertGreaterEqual(metrics["fleifeisa_live_pictures_total"], encoded)
        self.assertLessEqual(metrics["fleifeisa_live_pictures_total"], self.get("state")["web"]["encoded"])
        for camera, found in frames.items():  # they are looked at a few times a second
            name = f'fleifeisa_frames_answered_total{{camera="{camera}"}}'
            self.until(lambda: self.metrics()[name] >= found[-1][0], "the frames that were seen")
        for file in viewers:
            file.close()
        # The sockets are closed with the test: until then they are full, and the newest frame wins.
        status, headers, picture = self.ask("cameras/yard/picture.jpg?width=160")
        self.assertEqual((status, picture[:2]), (200, b"\xff\xd8"))
        self.assertGreater(int(headers["x-time-ns"]), 0)

    def test_a_view_changes_without_a_new_response(self):
        self.serve()
        self.login()
        _, file = self.stream("pictures")
        stream = self.message(file)[0]["stream"]
        for camera in ("gate", "yard"):
            self.assertEqual(self.ask(f"pictures/{stream}", "PUT", {"view": [{"camera": camera, "width": 100}]})[0], 204)
            while self.message(file)[0].get("camera") != camera:
                pass
            self.assertEqual({self.message(file)[0]["camera"] for _ in range(5)}, {camera})
        self.assertEqual(self.ask("pictures/nonsense", "PUT", {"view": []})[0], 404)
        self.assertEqual(self.ask(f"pictures/{stream}", "PUT", {"view": [{"camera": "no"}]})[0], 404)

    def test_files_come_in_ranges(self):
        process = self.serve()
        self.login()
        event = self.events("kind=zone")[0]
        self.end(process)
        data = random.Random(1).randbytes(10240)
        file = f"media/{event['camera']}/clip.mp4"
        path = self.dir / "state" / file
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(data)
        with sqlite3.connect(self.dir / "state/events.db") as database:
            camera = database.execute("SELECT id FROM cameras WHERE name = ?", [event["camera"]]).fetchone()[0]
            row = (camera << 40) + event["number"]
            database.execute("INSERT OR REPLACE INTO media VALUES(?, 4, ?, ?, ?, 1, 2, 0, 0, '')", [row, camera, file, len(data)])
        database.close()
        self.serve()
        self.login()
        clip = f"cameras/{event['camera']}/events/{event['number']}/clip.mp4"
        rows = ((None, 200, data), ("bytes=0-0", 206, data[:1]), ("bytes=5-9", 206, data[5:10]), ("bytes=10000-", 206, data[10000:]),
                ("bytes=-7", 206, data[-7:]), ("bytes=0-99999999999", 206, data), (f"bytes={len(data)}-", 416, None),
                ("bytes=-0", 416, None), ("bytes=9-5", 200, data), ("lines=1-2", 200, data), ("bytes=x", 200, data),
                ("bytes=99999999999999999999-", 200, data), ("bytes=" + ",".join(["0-"] * 200), 200, data))
        for header, status, body in rows:
            with self.subTest(header):
                answer = self.ask(clip, headers={"Range": header} if header else {}, raw=body is not None)
                self.assertEqual(answer[0], status)
                if body is not None:
                    self.assertEqual(answer[2], body)
                if status == 206:
                    first = len(data) - len(body) if header.startswith("bytes=-") else int(header[6:].split("-")[0])
                    self.assertEqual(answer[1]["content-range"], f"bytes {first}-{first + len(body) - 1}/{len(data)}")
        other = "yard" if event["camera"] == "gate" else "gate"
        self.assertEqual(self.ask(clip.replace(event["camera"], other))[0], 404)
        path.unlink()
        path.symlink_to("/etc/passwd")
        self.assertEqual(self.ask(clip)[0], 404)


class Rights(WebTest):
    def test_closed_by_default(self):
        self.write("host.toml", config().replace("127.0.0.1:0", "0.0.0.0:0"))
        refused = self.host("run", "host.toml", expect=78)
        self.assertIn("user add", refused.stderr)
        self.write("host.toml", config('url = "https://example.org/eye"'))
        self.assertIn("user add", self.host("run", "host.toml", expect=78).stderr)
        self.serve()
        for host, status in (("localhost", 200), (f"127.0.0.1:{self.port}", 200), ("[::1]:80", 200), ("evil.example", 403),
                             ("127.0.0.1.evil.example", 403), ("", 403)):
            self.assertEqual(self.ask("session", headers={"Host": host})[0], status, host)

    def test_a_user_sees_only_what_is_theirs(self):
        self.user("add", "ann", "--role", "admin")
        self.user("add", "guest", "--camera", "gate")
        token = self.user("token", "guest", "program", password="")
        self.serve()
        for path in ("cameras", "events", "state", "changes", "pictures?view=gate", "cameras/gate/picture.jpg", "metrics"):
            self.assertEqual(self.ask(path)[0], 401, path)
        self.login("ann")
        hidden = self.events("camera=yard&kind=zone")[0]
        shown = self.events("camera=gate&kind=zone")[0]
        link = self.ask(f"cameras/yard/events/{hidden['number']}/link", "POST", {"file": "picture.jpg", "hours": 1})[2]["href"]
        admin = self.cookie
        yard = f"cameras/yard/events/{hidden['number']}"
        gate = f"cameras/gate/events/{shown['number']}"
        for how in ("cookie", "token"):
            if how == "cookie":
                self.login("guest")
            else:
                self.cookie = self.token = None
            with self.subTest(how):
                def ask(path, method="GET", body=None):
                    return self.ask(path, method, body, bearer=token if how == "token" else None)
                self.assertEqual([c["name"] for c in ask("cameras")[2]], ["gate"])
                self.assertEqual({e["camera"] for e in ask("events")[2]["events"]}, {"gate"})
                self.assertEqual({v["event"]["camera"] for v in ask("visits")[2]["visits"]}, {"gate"})
                self.assertEqual(ask("events?camera=yard")[2]["events"], [])
                self.assertEqual(ask(f"events?visit={hidden['visit']}")[0], 400)
                self.assertNotIn(b"yard", ask("metrics")[2])
                for path in ("cameras/yard", "cameras/yard/tracks", "cameras/yard/picture.jpg", "cameras/yard/activity",
                             "cameras/yard/gaps", "cameras/yard/scenes", "cameras/yard/counts", yard, yard + "/picture.jpg",
                             yard + "/clip.mp4", "pictures?view=gate,yard"):
                    self.assertEqual(ask(path)[0], 404, path)
                for path in ("state", "log", "configuration", "users", "cameras/gate/settings", "cameras/gate/history"):
                    self.assertEqual(ask(path)[0], 403, path)
                for method, path in (("PATCH", "settings"), ("PUT", "zones/all"), ("DELETE", "zones/all"), ("PUT", "lines/x"), ("POST", "undo"),
                                     ("POST", "what-if"), ("POST", "trials"), ("GET", "trials/1"), ("DELETE", "trials/1")):
                    self.assertEqual(ask("cameras/gate/" + path, method, {"change": 1})[0], 403, path)
                for method, path, body in (("PATCH", yard, {"reviewed": True}), ("DELETE", yard, None),
                                           ("POST", yard + "/link", {"file": "picture.jpg", "hours": 1}),
                                           ("POST", "export", {"events": [hidden["event"]]}),
                                           ("POST", "reviewed", {"events": [hidden["event"]], "reviewed": True})):
                    self.assertIn(ask(path, method, body)[0], (403, 404), path)
                for method, path, body in (("DELETE", gate, None), ("PATCH", gate, {"keep": True}),
                                           ("POST", "users", {"name": "x", "password": PASSWORD, "role": "admin"}),
                                           ("PATCH", "users/guest", {"role": "admin"}), ("DELETE", "users/ann", None)):
                    self.assertEqual(ask(path, method, body)[0], 403, path)
                for mark, by in (("right", "guest"), ("wrong", "guest"), (None, None)):
                    self.assertEqual(ask(gate, "PATCH", {"mark": mark})[0], 200)
                    details = ask(gate)[2]
                    self.assertEqual((details["event"]["mark"], details["marked_by"]), (mark, by))
        # Changes of the other camera are not told.
        self.login("guest")
        _, file = self.stream("changes")
        text = b"".join(file.readline() for _ in range(12))
        self.assertNotIn(b"yard", text)
        # Signed links open without a session: that path only, unchanged.
        self.cookie = self.token = None
        self.until(lambda: self.ask(link)[0] == 200, "the event's picture")
        for other in (link.replace("yard", "gate"), link.replace("picture.jpg", "clip.mp4"), link[:-1] + ("0" if link[-1] != "0" else "1"),
                      re.sub(r"expires=\d+", "expires=99999999999", link), re.sub(r"expires=\d+", "expires=1", link)):
            self.assertEqual(self.ask(other)[0], 401, other)
        # One that is rightly signed opens until it expires.
        with sqlite3.connect(self.dir / "state/web.db") as database:
            secret = database.execute("SELECT value FROM secrets").fetchone()[0]
        database.close()
        path = link.split("?")[0]
        for expires, opens in ((int(time.time()) + 60, True), (int(time.time()) - 1, False)):
            sign = hashlib.blake2b(f"link {expires} /api/v1/{path}".encode(), key=secret, digest_size=32).hexdigest()
            self.assertEqual(self.ask(f"{path}?expires={expires}&sign={sign}")[0], 200 if opens else 401)
        # What is changed from outside holds at once, also for responses that run.
        self.login("guest")
        _, file = self.stream("pictures?view=gate")
        self.user("remove", "guest", password="")
        self.assertEqual(self.ask("cameras")[0], 401)
        self.assertEqual(self.ask("cameras", bearer=token)[0], 401)
        end = time.monotonic() + 15
        while file.read(65536):
            self.assertLess(time.monotonic(), end, "the stream of a user who is gone goes on")
        self.cookie = admin
        self.get("cameras")

    def test_logins(self):
        self.user("add", "ann", "--role", "admin")
        self.serve()
        self.login("ann")
        for path, method, body in (("users", "POST", {"name": "x", "password": PASSWORD, "role": "root"}),
                                   ("users", "POST", {"name": "x", "password": "short", "role": "view"}),
                                   ("users", "POST", {"name": "x y", "password": PASSWORD, "role": "view"}),
                                   ("users", "POST", {"name": "x", "password": PASSWORD, "role": "view", "cameras": "gate"}),
                                   ("users", "POST", {"password": PASSWORD}), ("users/ann", "PATCH", {"role": "nobody"})):
            self.assertEqual(self.ask(path, method, body)[0], 400, body)
        self.assertEqual([(u["name"], u["role"]) for u in self.get("users")], [("ann", "admin")])
        stolen, token = self.cookie, self.token
        self.assertEqual(self.ask("session", "DELETE")[0], 204)
        self.assertEqual(self.ask("cameras")[0], 401)  # the cookie is of no use after the logout
        self.cookie = "x" * 43
        self.assertEqual(self.ask("cameras")[0], 401)
        with sqlite3.connect(self.dir / "state/web.db") as database:
            self.login("ann")
            database.execute("UPDATE sessions SET used = used - 31 * 86400")
            database.commit()
            self.assertEqual(self.ask("cameras")[0], 401)  # expired
            text = (self.dir / "state/web.db").read_bytes() + (self.dir / "state/web.db-wal").read_bytes()
        database.close()
        self.assertNotIn(self.cookie.encode(), text)
        self.assertNotIn(PASSWORD.encode(), text)
        self.assertIn(b"$argon2id$", text)
        self.assertEqual((self.dir / "state/web.db").stat().st_mode & 0o077, 0)
        # Guessing: after some attempts one has to wait, whatever the name, and with the right password, too.
        answers = []
        for attempt in range(9):
            status, headers, _ = self.ask("session", "POST", {"user": f"nobody{attempt}", "password": "guess" * 3})
            answers.append(status)
        self.assertEqual(answers[:4], [401] * 4)
        self.assertEqual(answers[-1], 429)
        self.assertGreater(int(headers["retry-after"]), 0)
        self.login("ann", expect=429)


class Attacks(WebTest):
    def raw(self, text, seconds=5):
        with socket.create_connection(("127.0.0.1", self.port), timeout=seconds) as connection:
            connection.sendall(text)
            data = b""
            try:
                while chunk := connection.recv(65536):
                    data += chunk
                    if b"\r\n\r\n" in data:
                        break
            except socket.timeout:
                pass
            return data

    def test_other_sites_and_strange_requests(self):
        process = self.serve()
        self.login()
        event = self.events()[0]
        path = f"cameras/{event['camera']}/events/{event['number']}"
        token = self.token
        strange = [({"Origin": "http://evil.example"}, 403), ({"Sec-Fetch-Site": "cross-site"}, 403),
                   ({"Sec-Fetch-Site": "same-site"}, 403), ({"Origin": "null"}, 403), ({"X-Fleifeisa-Token": "guess"}, 403),
                   ({"X-Fleifeisa-Token": ""}, 403), ({"Origin": f"http://127.0.0.1:{self.port}"}, 200), ({}, 200)]
        for headers, status in strange:
            with self.subTest(headers):
                self.assertEqual(self.ask(path, "PATCH", {"mark": "right"}, headers=headers)[0], status)
        self.assertEqual(self.ask("cameras", headers={"Sec-Fetch-Site": "cross-site"})[0], 403)
        self.assertEqual(self.ask("/", headers={"Sec-Fetch-Site": "cross-site"})[0], 200)  # links from elsewhere
        # A form of another site: no token, another type.
        self.assertEqual(self.ask(path, "PATCH", "mark=right", headers={"X-Fleifeisa-Token": "", "Content-Type":
                                                                        "application/x-www-form-urlencoded"})[0], 403)
        for odd in ("/../state/web.db", "/..%2f..%2fetc/passwd", "/%2e%2e/%2e%2e/etc/passwd", "/index.html/../../state/web.db",
                    f"/api/v1/{path}/../../../../web.db", f"/api/v1/{path}/..%2f..%2fweb.db", f"/api/v1/{path}/clip.mp4%00.txt",
                    f"/api/v1/cameras/..%2f..%2f/events/1/clip.mp4", "/api/v1/cameras/%0d%0aSet-Cookie:%20a=b",
                    "/%0d%0aX-Evil:%20yes", "/api/v1/cameras/a%22%3e%3cscript%3e", "/api/v1/" + "a/" * 500,
                    f"/api/v1/cameras/{event['camera']}/events/-1", f"/api/v1/cameras/{event['camera']}/events/99999999999999999999"):
            with self.subTest(odd):
                status, headers, data = self.ask(odd, raw=True)
                self.assertIn(status, (400, 404))
                self.assertNotIn("x-evil", headers)
                self.assertNotIn("set-cookie", headers)
                self.assertNotIn(b"<script>", data)
        for body in ("", "[]", "nonsense", "{" * 10000, '{"mark": 7}', '{"keep": "yes"}', '{"reviewed": 1}', "\xff\xfe".encode("latin-1")):
            self.assertEqual(self.ask(path, "PATCH", body)[0], 400, body[:20])
        self.assertEqual(self.ask(path, "PATCH", b"", headers={"Content-Length": str(100 << 20)})[0], 413)
        self.assertIn(b" 411 ", self.raw(b"POST /api/v1/reviewed HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\n"))
        for text in (b"GET / HTTP/1.1\r\nHost: localhost\r\nX: " + b"a" * 200000 + b"\r\n\r\n", b"\x16\x03\x01\x02\x00" * 50,
                     b"GET / HTTP/9.9\r\n\r\n", b"GET http://evil.example/ HTTP/1.1\r\nHost: evil.example\r\n\r\n", b"\r\n" * 5000):
            self.assertNotIn(b" 200 ", self.raw(text, 2)[:20])
        # Titles are data: escaped JSON, and no page is made of them here; the shell allows no code of others.
        headers = self.ask("/")[1]
        self.assertIn("script-src 'self'", headers["content-security-policy"])
        self.assertNotIn("unsafe", headers["content-security-policy"])
        self.assertEqual(headers["x-content-type-options"], "nosniff")
        self.assertEqual(self.get("cameras/gate")["title"], "<b>gate</b>")
        self.assertEqual(self.ask("cameras/gate", "DELETE")[0], 405)
        self.assertEqual(self.get("state")["web"]["faults"], 0)
        self.assertIsNone(process.poll())

    def test_slow_and_many_connections_leave_room(self):
        process = self.serve("connections = 60", "per_address = 40")
        self.login()
        idle = [socket.create_connection(("127.0.0.1", self.port)) for _ in range(30)]
        slow = idle.pop()
        began = time.monotonic()
        for byte in b"GET / HTTP/1.1\r\nHost: localhost\r\n" * 10:  # a byte a second, more or less
            try:
                slow.sendall(bytes([byte]))
                slow.settimeout(0.5)
                if slow.recv(1) == b"":
                    break
            except socket.timeout:
                continue
            except OSError:
                break
        self.assertLess(time.monotonic() - began, 16)  # ten seconds, and the turn of a second
        for connection in idle:  # silent ones are gone with it
            connection.settimeout(10)
            self.assertEqual(connection.recv(1), b"")
            connection.close()
        flood, refused = [], 0
        for _ in range(1000):
            try:
                connection = socket.create_connection(("127.0.0.1", self.port), timeout=5)
                connection.sendall(b"GET /livez HTTP/1.1\r\nHost: localhost\r\n\r\n")
                flood.append(connection)
            except OSError:
                refused += 1
        answers = {b"": 0, b"200": 0, b"503": 0}
        for connection in flood:
            try:
                connection.settimeout(5)
                answers[connection.recv(4096)[9:12]] += 1
            except OSError:
                refused += 1
        for connection in flood:  # not before: each would make room for another one
            connection.close()
        self.assertLessEqual(answers[b"200"], 40)
        self.assertGreater(answers[b"200"], 0)
        self.assertGreater(answers[b"503"], 0)
        self.until(lambda: self.ask("/livez")[0] == 200, "room again")
        self.assertGreater(self.get("state")["web"]["refused"], 0)

    def test_long_responses_hold_nobody_up(self):
        """Eight tabs with two long responses each, none of which is read, and the interface answers."""
        self.serve()
        self.login()
        tabs = [self.stream(path) for _ in range(8) for path in ("changes", "pictures?view=gate:160,yard:160")]
        self.assertTrue(all(b" 200 " in status for status, _ in tabs))
        times = []
        for _ in range(20):
            began = time.monotonic()
            self.get("cameras")
            self.get("events?limit=5")
            times.append(time.monotonic() - began)
        self.assertEqual(self.get("state")["web"]["streams"], 16)
        self.assertLess(sorted(times)[10], 1)


@needs_ffmpeg
class Media(WebTest):
    def record(self, *codec):
        """An event with a clip of painted frames, from a host before this one; the times of its frames."""
        source = clip_runs.Clips.source(self, "source.mp4", *codec)
        self.host("play", source, "--quiet", "--analyzer", self.analyzer(clip_runs.WALKER.replace("<= 80", "<= 140")), "--state", "state",
                  "--start-time", clip_runs.START_TEXT, "--zone", "all=0,0 1,0 1,1 0,1")
        self.serve(cameras=("yard",))
        self.login()
        event = next(e for e in self.events("kind=zone") if e["camera"] != "yard")
        self.assertEqual(event["clip"], "ready")
        path = f"cameras/{event['camera']}/events/{event['number']}"
        return event, path, self.get(path + "/times.json")

    def test_copies_exports_and_what_a_deletion_leaves(self):
        event, path, times = self.record("-c:v", "libx265", "-preset", "ultrafast", "-x265-params", "log-level=error:keyint=20")
        status, headers, _ = self.ask(path + "/play.mp4")
        self.assertEqual((status, headers["retry-after"]), (503, "2"))
        self.until(lambda: self.ask(path + "/play.mp4", raw=True)[0] == 200, "a copy")
        (self.dir / "copy.mp4").write_bytes(self.ask(path + "/play.mp4", raw=True)[2])
        seen = clip_runs.numbers(self.dir / "copy.mp4")
        self.assertEqual(times["time_ns"], [clip_runs.START + n * 100_000_000 for n in seen])
        self.assertIn(b"h264", subprocess.check_output(["ffprobe", "-v", "error", "-show_streams", self.dir / "copy.mp4"]))
        self.assertEqual(len(list(self.dir.glob("state/media/*/*/*-play.mp4"))), 1)
        self.assertGreater(self.get("state")["disk"]["days"], 0)

        status, headers, data = self.ask("export", "POST", {"events": [event["event"]] * 2}, raw=True)
        self.assertEqual((status, headers["content-type"]), (200, "application/zip"))
        export = zipfile.ZipFile(io.BytesIO(data))
        self.assertEqual([e["event"] for e in json.loads(export.read("events.json"))], [event["event"]])
        self.assertIn(self.ask(path + "/clip.mp4", raw=True)[2], [export.read(name) for name in export.namelist()])
        for ids, expected in (([], 400), ([event["event"]] * 501, 400), ([event["event"], "yard-999999"], 404), (["../x-1"], 404)):
            self.assertEqual(self.ask("export", "POST", {"events": ids})[0], expected, ids)
        self.assertEqual(list(self.dir.glob("state/exports/**/*.*")), [])  # nothing that a deletion would miss

        self.assertEqual(self.ask(path, "DELETE")[0], 204)
        self.assertEqual(list(self.dir.glob(f"state/media/{event['camera']}/*/{event['number']}[.-]*")), [])
        for gone in (path, path + "/play.mp4", path + "/clip.mp4"):
            self.get(gone, 404)
        self.assertEqual(self.ask("export", "POST", {"events": [event["event"]]})[0], 404)


class Changing(WebTest):
    def test_zones_come_and_go_and_last(self):
        """Zones and values changed over the interface: in force at once, after a restart, taken back; the configuration file stays."""
        process = self.serve()
        self.login()
        text = (self.dir / "host.toml").read_text()

        def zones():
            return {z["name"]: z["title"] for z in self.get("cameras/gate")["zones"]}

        def change(method, path, body=None, expect=200):
            status, _, data = self.ask("cameras/gate/" + path, method, body)
            self.assertEqual(status, expect, data)
            return data
        half = [[0, 0.5], [1, 0.5], [1, 1], [0, 1]]
        first = change("PUT", "zones/half", {"points": half, "title": "Lower"})
        self.assertEqual((first["change"], first["effect"]), (1, "rules"))
        self.until(lambda: zones() == {"all": "all", "half": "Lower"} or zones() == {"all": "", "half": "Lower"}, f"the zone: {zones()}")
        self.events("camera=gate&rule=half")
        change("DELETE", "zones/all")
        change("PATCH", "settings", {"control": {"color_high": 0.7}, "masks": [[[0, 0], [1, 0], [1, 0.1]]]})
        self.until(lambda: list(zones()) == ["half"] and len(self.get("cameras/gate")["masks"]) == 1, "all of it")
        refused = (("PUT", "zones/x", {"title": "no points"}, 400, "points"), ("PUT", "zones/x", {"points": [[0, 0], [1, 1]]}, 400, "points"),
                   ("PUT", "lines/half", {"points": [[0, 0], [1, 1]]}, 400, "another zone or line"), ("DELETE", "zones/x", None, 404, "zone"),
                   ("PATCH", "settings", {"source": "/etc/passwd"}, 400, "configuration file"), ("PATCH", "settings", {"rate": "5"}, 400, "rate"),
                   ("PATCH", "settings", {"outputs": ["jsonl=/tmp/x"]}, 400, "configuration file"), ("PATCH", "settings", {}, 400, "nothing"),
                   ("PATCH", "settings", {"zone": {"half": {"when": "noon"}}}, 400, "when"), ("POST", "undo", {"change": 99}, 404, "change"))
        for method, path, body, status, words in refused:
            with self.subTest(path, body=body):
                self.assertIn(words, change(method, path, body, status)["error"])
        # What is in force says where it comes from, and lasts.
        origins = {v["key"]: v["origin"] for v in self.get("configuration")["values"]}
        self.assertRegex(origins["camera.gate.zone.half.points"], r"overrides\.toml:\d+$")
        self.assertRegex(origins["camera.gate.source"], r"host\.toml:\d+$")
        self.assertEqual(origins["camera.gate.least_area"], "default")
        self.end(process)
        printed = self.host("run", "--print-config", "host.toml").stdout
        self.assertRegex(printed, r"camera\.gate\.zone\.half\.title = ['\"]Lower['\"]  # .*overrides\.toml:\d+\n")
        self.assertNotIn("camera.gate.zone.all", printed)
        self.serve()
        self.login()
        self.assertEqual(list(zones()), ["half"])
        # Taken back, the latest first where they touch the same.
        change("PUT", "zones/half", {"dwell": 3})
        self.assertIn("changed again", change("POST", "undo", {"change": 1}, 409)["error"])
        for number in (4, 3, 2, 1):
            change("POST", "undo", {"change": number})
        self.until(lambda: list(zones()) == ["all"] and not self.get("cameras/gate")["masks"], "as it was")
        history = self.get("cameras/gate/history")["changes"]
        self.assertEqual([c["undoes"] for c in history], [1, 2, 3, 4, None, None, None, None])
        self.assertEqual([c["undone_by"] for c in history[4:]], [5, 6, 7, 8])
        self.assertGreater(history[-2]["before"]["events"], 0)
        self.assertEqual((self.dir / "host.toml").read_text(), text)

    def test_the_past_is_asked_and_a_wrong_event_answered(self):
        self.serve()
        self.login()
        zone = {"points": [[0, 0.3], [1, 0.3], [1, 1], [0, 1]]}

        def ask(points, rule="new", **more):
            status, _, data = self.ask("cameras/gate/what-if", "POST", {"rule": rule, "days": 1, "change": {"zone": {rule: {"points": points, **more}}}})
            self.assertEqual(status, 200, data)
            return data
        found = self.until(lambda: (lambda f: f if f["events"] >= 3 else None)(ask(zone["points"])), "stored tracks", 60)
        self.assertEqual((found["before"], found["rule"]), (None, "new"))
        self.assertGreaterEqual(found["tracks"], found["events"])
        self.assertEqual(len(found["shown"]), min(24, found["events"]))
        shown = next(one for one in found["shown"] if one["event"])
        self.assertEqual(self.ask(f"cameras/gate/events/{shown['event'].rsplit('-', 1)[1]}/thumb.jpg", raw=True)[0], 200)
        self.assertEqual(ask([[0, 0], [0.02, 0], [0.02, 0.02]])["events"], 0)
        self.assertEqual(ask(zone["points"], least_size=0.99)["events"], 0)
        same = ask([[0, 0], [1, 0], [1, 1], [0, 1]], "all")
        self.assertEqual(same["before"], same["events"])
        self.assertEqual(self.get("cameras/gate/settings")["changed"], [])
        # Not again: of an event that ended, marked wrong; one click removes it, one brings it back.
        event = self.until(lambda: next((e for e in self.get("events?camera=gate&kind=zone&limit=100")["events"] if e["end_ns"]), None), "an ended event", 40)
        path = f"cameras/gate/events/{event['number']}"
        self.ask(path, "PATCH", {"mark": "wrong"})
        answer = self.until(lambda: (lambda a: a if a["suggestions"] else None)(self.get(path + "/not-again")), "its track", 40)
        self.assertEqual((answer["wrong"], answer["right"], answer["rule"]), (1, 0, "all"))
        for one in answer["suggestions"]:
            with self.subTest(one["kind"]):
                self.assertEqual((one["removes"]["wrong"], one["removes"]["right"]), (1, 0))
                status, _, made = self.ask("cameras/gate/settings", "PATCH", one["change"])
                self.assertEqual(status, 200, made)
                self.assertEqual(self.ask("cameras/gate/undo", "POST", {"change": made["change"]})[0], 200)
        self.assertEqual(self.get("cameras/gate/settings")["changed"], [])

    def test_two_trials_and_their_end(self):
        self.serve()
        self.login()
        change = {"control": {"color_low": 0.4}, "size": "80x60"}
        first, second = (self.ask("cameras/gate/trials", "POST", {"change": change})[2] for _ in range(2))
        self.assertEqual([first["trial"], second["trial"]], [1, 2])
        self.assertEqual(self.ask("cameras/yard/trials", "POST", {"change": change})[0], 409)
        self.assertEqual(self.ask("cameras/gate/trials", "POST", {"change": {"source": "x"}})[0], 400)
        status, file = self.stream("pictures?view=gate~1:80")
        self.message(file)
        frame, picture = self.message(file)
        self.assertEqual((frame["camera"], frame["size"]), ("gate~1", [80, 60]))
        self.assertTrue(picture.startswith(b"\xff\xd8"))
        self.assertIn(b"404", self.stream("pictures?view=yard~1:80")[0])
        self.assertEqual(self.ask("cameras/gate/trials/2", "DELETE")[0], 204)
        self.assertEqual(self.ask("cameras/gate/trials/2")[0], 404)
        self.until(lambda: self.get("cameras/gate/trials/1")["learned"] > 0, "learning")
        self.assertEqual(self.get("cameras/gate/settings")["changed"], [])

    def test_a_damaged_file_loses_nothing(self):
        process = self.serve()
        self.login()
        self.assertEqual(self.ask("cameras/gate/settings", "PATCH", {"private": [[[0, 0], [1, 0], [1, 1]]]})[2]["effect"], "restart")
        file = self.dir / "state/overrides.toml"
        good = file.read_text()
        for text, words in ((good[:-4], "overrides.toml:"), (good.replace("private", "source"), "configuration file")):
            file.write_text(text)
            status, _, data = self.ask("cameras/gate/settings", "PATCH", {"stopped": 3})
            self.assertIn(status, (400, 409), data)
            process.send_signal(1)
            self.until(lambda: self.log().count("the configuration in force stays"), "a word")
            self.assertEqual(file.read_text(), text)
            self.assertIn(words, self.host("run", "--check-config", "host.toml", expect=78).stderr)
        # Of what is gone from the configuration nothing is left behind but a warning.
        file.write_text(good.replace('"gate"', '"gone"').replace("'gate'", "'gone'"))
        self.assertIn("no camera 'gone' any more", self.host("run", "--check-config", "host.toml").stderr)


if __name__ == "__main__":
    unittest.main(verbosity=2 if "-v" in sys.argv else 1)
