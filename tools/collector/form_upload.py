"""Receiving one report post: the raw body to disk, the form through a MIME parser.

The body is streamed once: each chunk read from the socket goes to the body
file and into the email package's feed parser, so a large zip is not held
twice over as raw bytes beside the parsed form.
"""

import email.parser
import email.policy
import os

CRASH_REPORT_TYPE = "application/x-marlowen-crash-report"
UNIQUE_ID_FIELD = "uniqueId"
CHUNK = 1 << 20

# HTTP's policy: CRLF lines and no re-folding of long header lines.
POLICY = email.policy.HTTP


class TruncatedBody(Exception):
    """The peer closed the connection before Content-Length bytes arrived."""

    def __init__(self, received):
        super().__init__(f"connection closed after {received} bytes of the body")
        self.received = received


def form_content_type(value):
    """Reads a request's Content-Type the way the parser will.

    Returns (is multipart/form-data with a boundary, problem text or None).
    """
    header = POLICY.header_factory("Content-Type", value or "")
    if header.content_type != "multipart/form-data":
        return False, f"request Content-Type is {value!r}, not multipart/form-data"
    if not header.params.get("boundary"):
        return False, "request Content-Type has no boundary"
    return True, None


class FormReceiver:
    """Takes the body in chunks and gives back the parsed form."""

    def __init__(self, content_type, body_path):
        self.body_path = body_path
        self.received = 0
        is_form, self.content_type_problem = form_content_type(content_type)
        self._parser = None
        if is_form:
            self._parser = email.parser.BytesFeedParser(policy=POLICY)
            # The parser wants a whole entity; the HTTP header stands for its head.
            self._parser.feed(b"Content-Type: " + content_type.encode("latin-1") + b"\r\n\r\n")

    def receive(self, stream, length):
        """Reads exactly length bytes into the body file and the parser."""
        with open(self.body_path, "wb") as out:
            while self.received < length:
                chunk = stream.read(min(CHUNK, length - self.received))
                if not chunk:
                    raise TruncatedBody(self.received)
                out.write(chunk)
                if self._parser is not None:
                    self._parser.feed(chunk)
                self.received += len(chunk)

    def finish(self):
        """Returns (facts for the log, crash report bytes or None)."""
        facts = {"preamble": None, "fieldNames": [], "fields": {}, "uniqueId": None,
                 "parts": [], "file": None, "problems": []}
        problems = facts["problems"]
        if self._parser is None:
            problems.append(self.content_type_problem)
            return facts, None
        message = self._parser.close()
        self._parser = None
        problems.extend(_defect_texts(message))
        if not message.is_multipart():
            problems.append("the body holds no multipart form")
            return facts, None
        facts["preamble"] = message.preamble

        report = None
        for index, part in enumerate(message.iter_parts()):
            payload = part.get_payload(decode=True)
            size = len(payload) if payload is not None else 0
            name = part.get_param("name", header="content-disposition")
            file_name = part.get_filename()
            facts["parts"].append({
                "headers": [[key, str(value)] for key, value in part.items()],
                "name": name,
                "fileName": file_name,
                "contentType": part.get_content_type(),
                "length": size,
            })
            problems.extend(f"part {index + 1}: {text}" for text in _defect_texts(part))
            if name is not None and file_name is None:
                facts["fieldNames"].append(name)
                text = (payload or b"").decode("utf-8", errors="replace")
                facts["fields"].setdefault(name, text)
            if report is None and part.get_content_type() == CRASH_REPORT_TYPE:
                report = payload or b""
                facts["file"] = _file_facts(part, file_name, len(report), problems)

        unique_id = facts["fields"].get(UNIQUE_ID_FIELD)
        facts["uniqueId"] = unique_id
        if unique_id is None:
            problems.append(f"no form field '{UNIQUE_ID_FIELD}'")
        elif unique_id == "":
            problems.append(f"form field '{UNIQUE_ID_FIELD}' is empty")
        if report is None:
            problems.append(f"no part of type {CRASH_REPORT_TYPE}")
        return facts, report


def _defect_texts(message):
    return [f"{type(d).__name__}: {d}" if str(d) else type(d).__name__ for d in message.defects]


def _file_facts(part, file_name, size, problems):
    declared = part.get("Content-Length")
    declared_length = None
    if declared is not None:
        try:
            declared_length = int(str(declared).strip())
        except ValueError:
            problems.append(f"file part Content-Length {str(declared)!r} is not a number")
        else:
            if declared_length != size:
                problems.append(f"file part Content-Length says {declared_length} bytes, "
                                f"the part holds {size}")
    encoding = part.get("Content-Transfer-Encoding")
    return {"fileName": file_name, "contentType": part.get_content_type(),
            "transferEncoding": None if encoding is None else str(encoding),
            "declaredLength": declared_length, "length": size, "savedAs": None}


def safe_file_name(text):
    """The last path component of text, or None when nothing usable is left."""
    if not text:
        return None
    name = text.replace("\\", "/").rsplit("/", 1)[-1].strip()
    if name in ("", ".", "..") or "\0" in name:
        return None
    return name


def keep_report(folder, data, wanted_names, sequence):
    """Writes data into folder under the first usable name; never overwrites.

    A name already taken (a report posted again) gets "-<sequence>" before
    its extension. The file appears whole or not at all.
    """
    name = next((n for n in map(safe_file_name, wanted_names) if n), f"upload-{sequence}.zip")
    temporary = os.path.join(folder, f".incoming-{sequence}")
    with open(temporary, "wb") as f:
        f.write(data)
    stem, extension = os.path.splitext(name)
    candidates = [name, f"{stem}-{sequence}{extension}"]
    candidates += [f"{stem}-{sequence}-{n}{extension}" for n in range(2, 100)]
    try:
        for candidate in candidates:
            target = os.path.join(folder, candidate)
            try:
                os.link(temporary, target)
            except FileExistsError:
                continue
            return os.path.abspath(target)
        raise FileExistsError(f"no free name for {name} in {folder}")
    finally:
        os.unlink(temporary)
