"""The HTTP side of the collector: information, upload and control requests.

Every handler answers once and closes the connection, so a reply is always
delimited by Content-Length and the connection's end alike.
"""

import json
from http.server import BaseHTTPRequestHandler
from urllib.parse import urlsplit
from xml.sax.saxutils import escape

import behaviour as bh
from form_upload import FormReceiver, TruncatedBody, keep_report

CONTROL_BODY_LIMIT = 1 << 20
NOT_FOUND_PAGE = ("<html><head><title>404 Not Found</title></head>"
                  "<body><h1>Not Found</h1></body></html>\n")


def fill_tokens(text, upload_url, upload_base):
    """Puts the collector's own upload address where a caller could not know it."""
    return text.replace(bh.UPLOAD_URL_TOKEN, upload_url).replace(bh.UPLOAD_BASE_TOKEN,
                                                                 upload_base)


def info_document(info, upload_url, upload_base):
    lines = ['<?xml version="1.0" encoding="UTF-8"?>', f"<{info['root']}>"]
    if info["status"] is not None:
        lines.append(f"  <status>{escape(info['status'])}</status>")
    if info["uploadUrl"] is not None:
        url = fill_tokens(info["uploadUrl"], upload_url, upload_base)
        lines.append(f"  <uploadUrl>{escape(url)}</uploadUrl>")
    lines.append(f"</{info['root']}>")
    return "\n".join(lines) + "\n"


def refusal_document(refusal):
    lines = ['<?xml version="1.0" encoding="UTF-8"?>', f"<{refusal['root']}>"]
    for name in ("status", "errorDescription"):
        if refusal[name] is not None:
            lines.append(f"  <{name}>{escape(refusal[name])}</{name}>")
    lines.append(f"</{refusal['root']}>")
    return "\n".join(lines) + "\n"


def upload_reply(upload):
    """(status, content type, body text) of an accepted post's answer."""
    refusal = upload["refusal"]
    if upload["body"] is not None:
        body = upload["body"]
    elif refusal is not None:
        body = refusal_document(refusal)
    else:
        body = "OK\n"
    content_type = upload["contentType"]
    if content_type is None:
        content_type = "text/xml" if refusal is not None and upload["body"] is None else "text/plain"
    return upload["httpStatus"], content_type, body


class CollectorHandler(BaseHTTPRequestHandler):
    # HTTP/1.1 so that "Expect: 100-continue" is answered at once instead of
    # leaving the client to wait out its own delay before sending the body.
    protocol_version = "HTTP/1.1"
    server_version = "MarlowenTestCollector/1.0"

    @property
    def collector(self):
        return self.server.owner

    def log_message(self, format, *args):
        if self.collector.verbose:
            super().log_message(format, *args)

    def reply(self, status, content_type, body):
        if isinstance(body, str):
            body = body.encode("utf-8")
        self.send_response(status)
        if status not in (204, 304):
            if content_type is not None:
                self.send_header("Content-Type", content_type)
            self.send_header("Content-Length", str(len(body)))
        else:
            body = b""
        self.send_header("Connection", "close")
        self.end_headers()
        if self.command != "HEAD":
            self.wfile.write(body)
        self.close_connection = True

    def reply_json(self, status, value):
        self.reply(status, "application/json", json.dumps(value, indent=1) + "\n")

    def current_behaviour(self):
        """The behaviour in force, or None after answering 500 for a bad control file."""
        try:
            return self.collector.behaviour()
        except bh.BehaviourError as e:
            self.record(500, "bad-control-file")
            self.reply(500, "text/plain", f"test collector: {e}\n")
            return None

    def record(self, status, action="answered"):
        self.collector.record_request(self.server.role, self.client_address, self.command,
                                      self.path, status, action)


class InfoHandler(CollectorHandler):
    def do_GET(self):
        current = self.current_behaviour()
        if current is None:
            return
        info = current["info"]
        if urlsplit(self.path).path != bh.INFO_PATH:
            self.record(404)
            self.reply(404, "text/html", NOT_FOUND_PAGE)
            return
        addresses = self.collector.upload_url, self.collector.upload_base
        if info["body"] is None:
            body = info_document(info, *addresses)
        else:
            body = fill_tokens(info["body"], *addresses)
        self.record(info["httpStatus"])
        self.reply(info["httpStatus"], info["contentType"], body)

    do_HEAD = do_GET


class UploadHandler(CollectorHandler):
    def handle_expect_100(self):
        _, problem = self.body_length()
        if problem is not None:
            self.refuse_body(*problem)
            return False
        return super().handle_expect_100()

    def body_length(self):
        """(length, None) or (None, (status, text)) from the request headers."""
        if "chunked" in self.headers.get("Transfer-Encoding", "").lower():
            return None, (411, "chunked bodies are not taken: send Content-Length")
        text = self.headers.get("Content-Length")
        if text is None:
            return None, (411, "Content-Length is required")
        try:
            length = int(text.strip())
        except ValueError:
            length = -1
        if length < 0:
            return None, (400, f"Content-Length {text!r} is not a byte count")
        limit = self.collector.max_body
        if length > limit:
            return None, (413, f"a body of {length} bytes is over the limit of {limit} bytes")
        return length, None

    def refuse_body(self, status, text):
        self.record(status, "body-refused")
        self.reply(status, "text/plain", f"test collector: {text}\n")

    def do_POST(self):
        length, problem = self.body_length()
        if problem is not None:
            self.refuse_body(*problem)
            return
        current = self.current_behaviour()
        if current is None:
            return
        collector = self.collector
        sequence, body_path = collector.next_upload()
        content_type = self.headers.get("Content-Type")
        entry = {
            "sequence": sequence,
            "client": f"{self.client_address[0]}:{self.client_address[1]}",
            "method": self.command,
            "target": self.path,
            "httpVersion": self.request_version,
            "headers": [[name, value] for name, value in self.headers.items()],
            "contentType": content_type,
            "contentLength": length,
            "bodyLength": 0,
            "bodyFile": body_path,
        }
        receiver = FormReceiver(content_type or "", body_path)
        try:
            receiver.receive(self.rfile, length)
        except (TruncatedBody, OSError) as e:
            # Nobody is left to answer; the log still shows what came.
            entry.update(bodyLength=receiver.received, accepted=False,
                         problems=[f"body not received whole: {e}"], reply=None)
            collector.record_upload(entry)
            self.record(None, "body-truncated")
            self.close_connection = True
            return
        facts, report = receiver.finish()
        entry.update(facts, bodyLength=receiver.received)
        if report is not None:
            wanted = [facts["file"]["fileName"], f"{facts['uniqueId'] or ''}.zip"]
            facts["file"]["savedAs"] = keep_report(collector.received_dir, report, wanted, sequence)
            del report

        if facts["problems"]:
            status, reply_type = 400, "text/plain"
            body = "".join(f"test collector: {p}\n" for p in facts["problems"])
        else:
            status, reply_type, body = upload_reply(current["upload"])
        entry["accepted"] = not facts["problems"]
        entry["reply"] = {"status": status, "contentType": reply_type, "body": body}
        # Logged before the answer goes out: whoever sees the answer finds the
        # zip and the log line already in place.
        collector.record_upload(entry)
        self.record(status)
        try:
            self.reply(status, reply_type, body)
        except OSError:
            pass
        collector.upload_answered()

    def do_GET(self):
        self.record(405)
        self.send_response(405)
        self.send_header("Allow", "POST")
        self.send_header("Content-Length", "0")
        self.send_header("Connection", "close")
        self.end_headers()
        self.close_connection = True


class ControlHandler(CollectorHandler):
    """Run-time control, plain HTTP on loopback:

    GET /control      the behaviour in force
    PUT /control      a JSON overlay merged over the start-up behaviour
    DELETE /control   back to the start-up behaviour
    GET /uploads      the upload log as a JSON array
    GET /requests     the request log as a JSON array
    POST /stop        ends the collector
    """

    def do_GET(self):
        path = urlsplit(self.path).path
        if path == "/control":
            current = self.current_behaviour()
            if current is not None:
                self.reply_json(200, current)
        elif path == "/uploads":
            self.reply_json(200, self.collector.read_log(self.collector.uploads_log))
        elif path == "/requests":
            self.reply_json(200, self.collector.read_log(self.collector.requests_log))
        else:
            self.reply(404, "text/plain", "unknown control path\n")

    def do_PUT(self):
        if urlsplit(self.path).path != "/control":
            self.reply(404, "text/plain", "unknown control path\n")
            return
        try:
            length = int(self.headers.get("Content-Length", ""))
        except ValueError:
            self.reply(411, "text/plain", "Content-Length is required\n")
            return
        if not 0 <= length <= CONTROL_BODY_LIMIT:
            self.reply(413, "text/plain", "control documents are limited to 1 MB\n")
            return
        try:
            overlay = json.loads(self.rfile.read(length) or b"{}")
            current = self.collector.set_overlay(overlay)
        except (ValueError, bh.BehaviourError) as e:
            self.reply(400, "text/plain", f"test collector: {e}\n")
            return
        self.reply_json(200, current)

    def do_DELETE(self):
        if urlsplit(self.path).path != "/control":
            self.reply(404, "text/plain", "unknown control path\n")
            return
        self.reply_json(200, self.collector.clear_overlay())

    def do_POST(self):
        if urlsplit(self.path).path != "/stop":
            self.reply(404, "text/plain", "unknown control path\n")
            return
        self.reply_json(200, {"stopping": True})
        self.collector.stop("stop request", 0)


HANDLERS = {"info": InfoHandler, "upload": UploadHandler, "control": ControlHandler}
