#!/usr/bin/env python3
"""Runs the real test collector as a process and talks to it over loopback."""

import http.client
import json
import os
import signal
import socket
import ssl
import subprocess
import sys
import tempfile
import time
import unittest
import uuid
import xml.etree.ElementTree as ET

SOURCE_DIR = os.environ.get("ML_SOURCE_DIR") or os.path.join(os.path.dirname(__file__), "..", "..")
COLLECTOR = os.path.join(SOURCE_DIR, "tools", "collector", "collector.py")
CRASH_REPORT_TYPE = b"application/x-marlowen-crash-report"
# Bytes that trip naive multipart splitting: line ends, a fake delimiter, NULs
# and a lone CR just before the real closing delimiter.
AWKWARD_ZIP = (b"PK\x03\x04\x00\r\n--NextPart--ML\r\n\r\n" + bytes(range(256)) * 8
               + b"\n\r\n--\x00\r")


class Collector:
    """One collector process with its state folder; ends it when closed."""

    def __init__(self, *options):
        self.folder = tempfile.TemporaryDirectory(prefix="collector-test-")
        port_file = os.path.join(self.folder.name, "ports.json")
        self.process = subprocess.Popen(
            [sys.executable, COLLECTOR, "--state", os.path.join(self.folder.name, "state"),
             "--port-file", port_file, "--timeout", "120", *options],
            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        deadline = time.monotonic() + 20
        while not os.path.exists(port_file):
            if self.process.poll() is not None or time.monotonic() > deadline:
                self.process.kill()
                problem = self.process.stderr.read().decode()
                self.close()
                raise AssertionError("collector did not start: " + problem)
            time.sleep(0.02)
        with open(port_file, encoding="utf-8") as f:
            self.ready = json.load(f)

    def close(self):
        if self.process.poll() is None:
            self.process.terminate()
        self.process.wait(timeout=10)
        self.process.stderr.close()
        self.folder.cleanup()

    def control(self, method, path="/control", overlay=None):
        connection = http.client.HTTPConnection("127.0.0.1", self.ready["controlPort"], timeout=10)
        connection.request(method, path, body=None if overlay is None else json.dumps(overlay))
        response = connection.getresponse()
        text = response.read().decode()
        connection.close()
        if response.status != 200:
            raise AssertionError(f"control {method} {path}: {response.status} {text}")
        return json.loads(text)

    @staticmethod
    def request(host, port, context, method, path, body=None, headers=None):
        if context is None:
            connection = http.client.HTTPConnection(host, port, timeout=10)
        else:
            connection = http.client.HTTPSConnection(host, port, context=context, timeout=10)
        try:
            connection.request(method, path, body=body, headers=headers or {})
            response = connection.getresponse()
            return response.status, response.getheader("Content-Type"), response.read()
        finally:
            connection.close()

    def get_info(self, context=None, host="127.0.0.1", path="/CrashReportServer/ServerInfo"):
        context = context or ssl.create_default_context(cafile=self.ready["caBundle"])
        return self.request(host, self.ready["infoPort"], context, "GET", path)

    def post(self, body, content_type, context=None):
        return self.request("127.0.0.1", self.ready["uploadPort"], context, "POST", "/CrashReportServer/Upload", body,
                            {"Content-Type": content_type})


def unverified_context():
    context = ssl.create_default_context()
    context.check_hostname = False
    context.verify_mode = ssl.CERT_NONE
    return context


def report_post(zip_bytes, file_name="App_20261121093000_1234_5678.zip", unique_id=b"default",
                file_type=CRASH_REPORT_TYPE, declared=None):
    """The report post written out line by line; returns (body, Content-Type)."""
    boundary = ("--NextPart--ML" + str(uuid.uuid4()).upper()).encode()
    declared = len(zip_bytes) if declared is None else declared
    parts = (b"--" + boundary + b"\r\n"
             b'Content-Disposition: form/data; name="uniqueId"\r\n'
             b"\r\n"
             + unique_id + b"\r\n"
             b"--" + boundary + b"\r\n"
             b"Content-Type: " + file_type + b"\r\n"
             b"Content-Transfer-Encoding: binary\r\n"
             b'Content-Disposition: attachment; filename="' + file_name.encode() + b'"\r\n'
             b"Content-Length: " + str(declared).encode() + b"\r\n"
             b"\r\n"
             + zip_bytes + b"\r\n"
             b"--" + boundary + b"--")
    content_type = b'multipart/form-data; boundary="' + boundary + b'"'
    head = (b"Content-Length: " + str(len(parts)).encode() + b"\r\n"
            b"Content-Type: " + content_type + b"\r\n"
            b"Host: 127.0.0.1:80\r\n"
            b"User-Agent: Marlowen/1.0\r\n"
            b"\r\n")
    return head + parts, content_type.decode()


class RunningCollectorTest(unittest.TestCase):
    """Cases served one after the other by a single collector."""

    @classmethod
    def setUpClass(cls):
        cls.collector = Collector()

    @classmethod
    def tearDownClass(cls):
        cls.collector.close()

    def setUp(self):
        self.collector.control("DELETE")

    def last_upload(self):
        return self.collector.control("GET", "/uploads")[-1]

    def test_info_over_tls_is_trusted_by_the_test_ca_but_not_when_self_signed(self):
        for host in ("127.0.0.1", "localhost"):
            with self.subTest(host=host):
                status, content_type, body = self.collector.get_info(host=host)
                self.assertEqual((status, content_type), (200, "text/xml"))
                root = ET.fromstring(body)
                self.assertEqual((root.tag, root.findtext("status"), root.findtext("uploadUrl")),
                                 ("CrashReportServerInformation", "running", self.collector.ready["uploadUrl"]))
        self.assertEqual(self.collector.get_info(path="/ServerInfo")[0], 404)

        self.collector.control("PUT", overlay={"info": {"certificate": "self-signed"}})
        with self.assertRaises(ssl.SSLCertVerificationError):
            self.collector.get_info()
        with open(self.collector.ready["selfSignedCertificate"], encoding="ascii") as f:
            expected = ssl.PEM_cert_to_DER_cert(f.read())
        with socket.create_connection(("127.0.0.1", self.collector.ready["infoPort"])) as raw:
            with unverified_context().wrap_socket(raw) as tls:
                self.assertEqual(tls.getpeercert(binary_form=True), expected)

    def test_configured_info_replies(self):
        url = self.collector.ready["uploadUrl"]
        base = url.rsplit("/CrashReportServer", 1)[0]
        nested = ("<CrashReportServerInformation><a><b><uploadUrl>{uploadUrl}</uploadUrl></b>"
                  "</a><status>run<!-- split -->ning</status></CrashReportServerInformation>")
        cases = [
            ({"root": "crashReportServerInformation"}, ("crashReportServerInformation", "running", url)),
            ({"status": " running"}, ("CrashReportServerInformation", " running", url)),
            ({"status": "stopped", "uploadUrl": None}, ("CrashReportServerInformation", "stopped", "absent")),
            ({"status": None, "uploadUrl": "{uploadBase}/in?a=1&b=2"},
             ("CrashReportServerInformation", "absent", base + "/in?a=1&b=2")),
        ]
        for overlay, expected in cases:
            with self.subTest(overlay=overlay):
                self.collector.control("PUT", overlay={"info": overlay})
                root = ET.fromstring(self.collector.get_info()[2])
                self.assertEqual((root.tag, root.findtext("status", "absent"),
                                  root.findtext("uploadUrl", "absent")), expected)
        for info, expected in [({"httpStatus": 404, "contentType": "text/html", "body": "<html>gone</html>"},
                                (404, "text/html", b"<html>gone</html>")),
                               ({"body": nested}, (200, "text/xml", nested.replace("{uploadUrl}", url).encode()))]:
            with self.subTest(info=info):
                self.collector.control("PUT", overlay={"info": info})
                self.assertEqual(self.collector.get_info(), expected)

    def test_upload_keeps_zip_and_body_byte_for_byte(self):
        # The large one crosses the collector's read chunks at awkward bytes.
        for size, zip_bytes in {"small": AWKWARD_ZIP, "large": os.urandom(3 << 20) + AWKWARD_ZIP}.items():
            with self.subTest(size=size):
                file_name = f"Viewer_20261121093000_{os.getpid()}_{size}.zip"
                body, content_type = report_post(zip_bytes, file_name)
                self.assertEqual(self.collector.post(body, content_type), (200, "text/plain", b"OK\n"))
                entry = self.last_upload()
                with open(os.path.join(self.collector.ready["receivedDir"], file_name), "rb") as f:
                    self.assertEqual(f.read(), zip_bytes)
                with open(entry["bodyFile"], "rb") as f:
                    self.assertEqual(f.read(), body)
                self.assertEqual(
                    (entry["accepted"], entry["problems"], entry["target"], entry["contentType"],
                     entry["contentLength"], entry["bodyLength"], entry["uniqueId"], entry["fieldNames"]),
                    (True, [], "/CrashReportServer/Upload", content_type, len(body), len(body), "default",
                     ["uniqueId"]))
                self.assertEqual({k: entry["file"][k] for k in ("fileName", "contentType", "transferEncoding", "length")},
                                 {"fileName": file_name, "contentType": CRASH_REPORT_TYPE.decode(),
                                  "transferEncoding": "binary", "length": len(zip_bytes)})
                self.assertTrue(entry["preamble"].startswith("Content-Length: "))
                self.assertIn("User-Agent: Marlowen/1.0", entry["preamble"])

        # The same report posted again is kept beside the first.
        self.assertEqual(self.collector.post(*report_post(b"second", file_name))[0], 200)
        with open(self.last_upload()["file"]["savedAs"], "rb") as f:
            self.assertEqual(f.read(), b"second")
        with open(os.path.join(self.collector.ready["receivedDir"], file_name), "rb") as f:
            self.assertEqual(f.read(), zip_bytes)

    def test_configured_upload_replies(self):
        refusal = {"status": "rejected", "errorDescription": "Unknown product & version"}
        cases = [
            ({"httpStatus": 500, "refusal": refusal}, 500, "text/xml", refusal),
            ({"httpStatus": 500, "contentType": "TEXT/XML", "refusal": {"root": "Reply", "status": "failed"}},
             500, "TEXT/XML", {"status": "failed"}),
            ({"httpStatus": 201}, 201, "text/plain", None),
            ({"httpStatus": 200, "contentType": "text/xml; charset=utf-8", "body": "<r><status>failed</status></r>"},
             200, "text/xml; charset=utf-8", None),
        ]
        for upload, status, content_type, elements in cases:
            with self.subTest(upload=upload):
                self.collector.control("PUT", overlay={"upload": upload})
                got_status, got_type, reply = self.collector.post(*report_post(b"zip"))
                self.assertEqual((got_status, got_type), (status, content_type))
                if elements is not None:
                    self.assertEqual({child.tag: child.text for child in ET.fromstring(reply)}, elements)
                elif "body" in upload:
                    self.assertEqual(reply.decode(), upload["body"])
                self.assertEqual(self.last_upload()["reply"]["status"], status)
        self.collector.control("PUT", overlay={"upload": {"httpStatus": 204}})
        self.assertEqual(self.collector.post(*report_post(b"zip")), (204, None, b""))

    def test_malformed_posts_are_refused_and_logged(self):
        cases = [
            (report_post(b"zip", unique_id=b""), "form field 'uniqueId' is empty"),
            (report_post(b"zip", file_type=b"application/zip"), "no part of type application/x-marlowen-crash-report"),
            (report_post(b"zip", declared=4), "Content-Length says 4 bytes"),
            ((b"plain text", "text/plain"), "not multipart/form-data"),
        ]
        for (body, content_type), problem in cases:
            with self.subTest(problem=problem):
                status, _, reply = self.collector.post(body, content_type)
                self.assertEqual(status, 400)
                self.assertIn(problem, reply.decode())
                entry = self.last_upload()
                self.assertFalse(entry["accepted"])
                self.assertTrue(any(problem in text for text in entry["problems"]))

    def test_servers_that_close_or_refuse_and_a_control_file_written_by_hand(self):
        self.collector.control("PUT", overlay={"upload": {"mode": "close"}, "info": {"mode": "refuse"}})
        with self.assertRaises((http.client.RemoteDisconnected, ConnectionResetError, BrokenPipeError)):
            self.collector.post(*report_post(b"zip"))
        with self.assertRaises(ConnectionRefusedError):
            self.collector.get_info()
        self.collector.control("DELETE")
        self.assertEqual(self.collector.post(*report_post(b"zip"))[0], 200)

        path = self.collector.ready["controlFile"]
        for text, status, fragment in [('{"info": {"status": "maintenance"}}', 200, b"<status>maintenance</status>"),
                                       ('{"info": ', 500, b"not valid JSON"),
                                       ('{"info": {"colour": "red"}}', 500, b"unknown setting 'info.colour'")]:
            with self.subTest(text=text):
                with open(path + ".new", "w", encoding="utf-8") as f:
                    f.write(text)
                os.replace(path + ".new", path)
                got_status, _, body = self.collector.get_info()
                self.assertEqual(got_status, status)
                self.assertIn(fragment, body)
        with self.assertRaisesRegex(AssertionError, "400.*upload.mode"):
            self.collector.control("PUT", overlay={"upload": {"mode": "sleep"}})


class LifecycleTest(unittest.TestCase):
    """Start-up options and the ways a run ends."""

    def test_start_up_options_and_end_after_max_uploads(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        env_file = os.path.join(folder.name, "collector.env")
        collector = Collector("--self-signed", "--upload-scheme", "https", "--max-uploads", "1",
                              "--upload-http-status", "500", "--refusal-error", "disk full",
                              "--env-file", env_file)
        try:
            with open(env_file, encoding="utf-8") as f:
                self.assertEqual(f.read(), f"MARLOWEN_INFO_SERVER=127.0.0.1:{collector.ready['infoPort']}\n"
                                           f"MARLOWEN_CA_BUNDLE={collector.ready['caBundle']}\n")
            with self.assertRaises(ssl.SSLCertVerificationError):
                collector.get_info()
            self.assertTrue(collector.ready["uploadUrl"].startswith("https://127.0.0.1:"))
            status, content_type, reply = collector.post(*report_post(b"zip"), context=unverified_context())
            self.assertEqual((status, content_type), (500, "text/xml"))
            self.assertEqual(ET.fromstring(reply).findtext("errorDescription"), "disk full")
            self.assertEqual(collector.process.wait(timeout=10), 0)
        finally:
            collector.close()

    def test_run_ends_on_timeout_signal_and_stop(self):
        timed, signalled, stopped = Collector("--timeout", "0.3"), Collector(), Collector()
        try:
            self.assertEqual(timed.process.wait(timeout=10), 3)
            signalled.process.send_signal(signal.SIGTERM)
            self.assertEqual(signalled.process.wait(timeout=10), 0)
            stopped.control("POST", "/stop")
            self.assertEqual(stopped.process.wait(timeout=10), 0)
        finally:
            for collector in (timed, signalled, stopped):
                collector.close()

    def test_body_over_the_limit_is_refused(self):
        collector = Collector("--max-body", "1000")
        try:
            status, _, reply = collector.post(*report_post(b"x" * 2000))
            self.assertEqual(status, 413)
            self.assertIn(b"over the limit of 1000 bytes", reply)
            self.assertEqual(collector.control("GET", "/uploads"), [])
        finally:
            collector.close()

    def test_refuses_to_listen_beyond_loopback(self):
        with tempfile.TemporaryDirectory() as folder:
            done = subprocess.run([sys.executable, COLLECTOR, "--state", folder, "--host", "0.0.0.0"],
                                  capture_output=True, text=True, timeout=30)
        self.assertEqual(done.returncode, 1)
        self.assertIn("not a loopback address", done.stderr)


if __name__ == "__main__":
    unittest.main()
