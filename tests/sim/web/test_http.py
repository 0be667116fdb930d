#!/usr/bin/env python3
"""What the page's server lets in, and what its actions do; the trace file's form. Usage: VCAM=PROGRAM test_http.py"""
import http.client
import json
import os
import socket
import subprocess
import unittest

from served import Served, vcam

PATHS = ("/", "/known", "/events", "/block?camera=0&partition=mtd3", "/trace?camera=0", "/diff?camera=0",
         "/file?camera=0&path=/etc/passwd", "/sound?camera=0&name=mic.wav")


class Attacks(Served):
    def test_nothing_is_served_without_token_to_another_name_or_to_another_origin(self):
        strangers = ({"X_Token": ""}, {"X_Token": self.token[:-1]}, {"X_Token": self.token + "0"}, {"Host": "evil.example"},
                     {"Host": f"evil.example:{self.port}"}, {"Host": "127.0.0.1:1"}, {"Origin": "http://evil.example"},
                     {"Origin": "null"}, {"Origin": f"https://127.0.0.1:{self.port}"})
        for headers in strangers:
            for path in PATHS:
                self.assertEqual(self.request("GET", path, **headers)[0], 403, (path, headers))
            self.assertEqual(self.request("POST", "/action?camera=0", '{"action":"clear-pins"}', **headers)[0], 403, headers)
        self.assertIn("8.1", self.state("pins"))
        self.assertEqual(self.request("POST", "/action?camera=0", '{"action":"clear-pins"}',
                                      Origin=f"http://localhost:{self.port}")[0], 200)
        self.assertEqual(self.state("pins"), "")

    def test_headers_that_the_library_leaves_to_its_user_are_refused(self):
        right = f"Host: 127.0.0.1:{self.port}\r\nX-Token: {self.token}\r\n"
        for head, status in ((right, "200"), (right + "Host: evil.example\r\n", "403"), ("Host: evil.example\r\n" + right, "403"),
                             (right[right.index("X"):], "403"), (right + "X-Token: x\r\nContent-Encoding: gzip\r\n", "403"),
                             (right + "Origin: null\r\nOrigin: null\r\n", "403"), (right + f"X: {'x' * 70000}\r\n", "400")):
            with socket.create_connection(("127.0.0.1", int(self.port)), 60) as stream:
                stream.sendall(f"GET /known HTTP/1.1\r\n{head}\r\n".encode())
                self.assertEqual(stream.recv(12).decode()[9:], status, head[:200])

    def test_pages_that_do_not_read_leave_room_for_others_and_too_many_are_told(self):
        pages = [http.client.HTTPConnection("127.0.0.1", int(self.port), timeout=60) for _ in range(25)]
        for page in pages:
            page.request("GET", "/events?token=" + self.token)
        answers = [page.getresponse() for page in pages]
        self.assertEqual(sorted(a.status for a in answers), [200] * 24 + [503])
        self.assertEqual(self.request("GET", "/known")[0], 200)
        pages[0].sock.shutdown(socket.SHUT_RDWR)
        while True:
            again = http.client.HTTPConnection("127.0.0.1", int(self.port), timeout=60)
            again.request("GET", "/events?token=" + self.token)
            pages.append(again)
            answers.append(again.getresponse())
            if answers[-1].status == 200:
                break
        for page in pages:
            page.close()

    def test_actions_are_no_gets_and_wrong_ones_say_why(self):
        self.assertEqual(self.request("GET", f"/action?camera=0&token={self.token}")[0], 404)
        wrong = (({"action": "fault", "line": "mtd9 write 0 1 EIO"}, "mtd9"), ({"action": "fault", "line": "--clear"}, "fault"),
                 ({"action": "pin", "line": "4.0 wire 5.0\n8.1 stuck 0"}, "line end"), ({"action": "cut"}, "off"),
                 ({"action": "plug", "port": "ttyAMA1", "line": "block /etc/passwd"}, "replies"),
                 ({"action": "set-clock", "time": "--fault=stopped"}, "no time"), ({"action": "<b>"}, "no action"),
                 ({"action": "open-point", "point": "1/../../two"}, "is no point"), ({"action": "open-point", "point": "1/half"}, "no map"),
                 ({"action": "run", "words": "x"}, "name a program"), ({"action": 3}, "lacks"), ([], "lacks"))
        for request, reason in wrong:
            status, text = self.request("POST", "/action?camera=0", json.dumps(request))
            self.assertIn(status, (400, 409), request)
            self.assertIn(reason, text, request)
        for path in ("/action?camera=2", "/action?camera=-1", "/action?camera=x"):
            self.assertEqual(self.request("POST", path, '{"action":"clear-pins"}')[0], 400, path)
        self.assertEqual(self.request("POST", "/action?camera=0", "no json")[0], 400)
        self.assertEqual(self.state("faults"), "")

    def test_names_do_not_leave_the_camera(self):
        os.symlink(self.folder, f"{self.cameras[0]}/root/tmp/out")
        with open(f"{self.folder}/secret", "w") as file:
            file.write("secret")
        for path in ("/tmp/out/secret", "/../../secret", "/tmp/../../../secret", "secret", "-h", "/tmp"):
            status, text = self.request("GET", f"/file?camera=0&path={path}")
            self.assertIn((status, text) if status == 200 else status, (400, (200, "changed")), path)
            self.request("POST", f"/file?camera=0&path={path}", "changed")
        for name in ("../../secret", "speaker/../../secret.wav", "camera.conf", "speaker.wav/", "faults"):
            self.assertEqual(self.request("GET", f"/sound?camera=0&name={name}")[0], 404, name)
        with open(f"{self.folder}/secret") as file:
            self.assertEqual(file.read(), "secret")
        self.assertEqual(sorted(os.listdir(self.folder)), ["one", "secret", "two"])
        for query in ("mtd3&block=16", "mtd3&piece=16", "../mtd3", "mtd4"):
            self.assertEqual(self.request("GET", f"/block?camera=0&partition={query}")[0], 400, query)
        self.assertEqual(self.request("POST", "/file?camera=1&path=/etc/x.conf", "a=1\n")[0], 200)
        self.assertEqual(self.request("GET", "/file?camera=1&path=/etc/x.conf"), (200, "a=1\n"))

    def event(self, stream):
        while True:
            line = stream.readline()
            self.assertTrue(line)
            if line.startswith(b"data: "):
                return json.loads(line[6:])

    def test_a_camera_that_writes_over_its_own_folder_is_shown_as_lost_and_others_stay(self):
        connection = http.client.HTTPConnection("127.0.0.1", int(self.port), timeout=60)
        connection.request("GET", "/events?token=" + self.token)
        stream = connection.getresponse()
        seen = [self.event(stream), self.event(stream)]
        self.assertEqual([e["head"]["name"] for e in seen], ["one", "two"])
        os.truncate(f"{self.cameras[0]}/flash/mtd1", 5)
        os.unlink(f"{self.cameras[0]}/faults")
        os.mkfifo(f"{self.cameras[0]}/faults")
        while "faults is neither" not in self.event(stream).get("lost", ""):
            pass
        os.unlink(f"{self.cameras[0]}/faults")
        os.rename(self.cameras[0], self.folder + "/away")
        while "holds no camera" not in self.event(stream).get("lost", ""):
            pass
        self.act(1, action="fault", line="mtd1 write 3 1 EIO")
        while self.event(stream).get("faults") != [{"left": 1, "line": "mtd1 write 3 1 EIO"}]:
            pass
        connection.close()


class Runs(Served):
    def test_a_second_run_is_refused_and_stop_works_in_a_spoilt_folder(self):
        sleep = "mkfifo /run/vcam/zz; echo once >> /tmp/runs; sleep 600"
        self.assertEqual(self.act(action="run", words=["sh", "-c", sleep], time="real")[0], 200)
        self.assertEqual(self.act(action="run", words=["true"]), (409, "the camera runs already; stop it first"))
        while not os.path.exists(self.cameras[0] + "/root/tmp/runs"):
            pass
        self.assertIn("zz is neither", self.act(action="run", words=["true"])[1])
        self.assertEqual(self.act(action="cut"), (200, "done"))
        while self.act(action="cut")[0] != 409:
            pass
        self.assertEqual(self.state("ending"), "powercut\n")

    def test_a_port_in_use_is_an_error(self):
        second = subprocess.run([os.environ["VCAM"], "web", self.cameras[1], "--no-open", "--port", self.port],
                                capture_output=True, text=True, timeout=60)
        self.assertEqual((second.returncode, second.stdout), (1, ""))
        self.assertIn("in use", second.stderr)

    def test_no_control_character_of_a_camera_reaches_the_terminal(self):
        with open(self.cameras[0] + "/ending", "w") as file:
            file.write("exit\033[2J")
        for command in ("watch", "status"):
            said = vcam(command, self.cameras[0])
            self.assertNotIn("\033", said)
            self.assertIn("exit\\x1b[2J", said)


class Records(Served):
    def prepare(self):
        with open(self.cameras[0] + "/console", "w") as file:
            file.write("older run\n")
        vcam("run", self.cameras[0], "--", "sh", "-c", "logger '</script><b>x'; head -c 70000 /dev/zero > /dev/mtd1; printf x > /dev/mtd1; logger later")

    def test_the_trace_has_the_events_of_the_record_in_the_form_of_trace_viewers(self):
        trace = json.loads(vcam("trace", self.cameras[0]))
        self.assertEqual(json.loads(self.request("GET", "/trace?camera=0")[1]), trace)
        forms = {"M": {"name", "ph", "pid", "args"}, "i": {"name", "cat", "ph", "s", "ts", "pid", "tid"},
                 "X": {"name", "cat", "ph", "ts", "dur", "pid", "tid", "args"}}
        for event in trace["traceEvents"]:
            self.assertLessEqual(forms[event["ph"]], set(event))
            self.assertGreaterEqual(min(event.get("ts", 0), event.get("dur", 0)), 0)
        self.assertIn("</script><b>x", " ".join(e["name"] for e in trace["traceEvents"]))
        lanes = {e["tid"] for e in trace["traceEvents"] if e["name"] == "thread_name"}
        self.assertLessEqual({e["tid"] for e in trace["traceEvents"] if e["ph"] != "M"}, lanes)

    def test_a_report_holds_no_markup_of_the_camera(self):
        vcam("report", self.cameras[0], "-o", self.folder + "/report.html")
        with open(self.folder + "/report.html") as file:
            page = file.read()
        self.assertNotIn("</script><b>x", page)
        self.assertIn("\\u003c/script>\\u003cb>x", page)
        for output in ("camera.conf", "new.html", "root/../new.html"):
            self.assertEqual(subprocess.run([os.environ["VCAM"], "report", self.cameras[0], "-o", f"{self.cameras[0]}/{output}"],
                                            capture_output=True).returncode, 1, output)

    def test_a_watch_in_lines_goes_from_the_head_over_the_record_in_time_to_the_end(self):
        said = vcam("watch", self.cameras[0]).splitlines()
        self.assertTrue(said[0].startswith("one, ZM131, off"), said)
        self.assertEqual(said[-2:], ["flash mtd3 1 unchanged, 15 erased", "■ exit 0"])
        times = [float(line.split(" ")[1]) for line in said if line.startswith(("journal ", "log "))]
        self.assertGreater(len(times), 1)
        self.assertEqual(times, sorted(times))
        self.assertNotIn("console older run", said)


if __name__ == "__main__":
    unittest.main()
