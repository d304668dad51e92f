"""How the collector answers: the start-up settings and the run-time overlay.

The behaviour is a small JSON-shaped dict with an "info" and an "upload"
section. Start-up options fill one dict; a control file in the state folder
(written by hand or through the control endpoint) is merged over it and read
again for every request, so one collector can serve many test cases in turn.
"""

import copy
import json
import os
import threading

INFO_ROOT = "CrashReportServerInformation"
INFO_PATH = "/CrashReportServer/ServerInfo"
UPLOAD_PATH = "/CrashReportServer/Upload"
REFUSAL_ROOT = "CrashReportSubmissionReply"

# Listener states: answer, accept and drop the connection, or refuse it at
# the TCP level as a server that is down would.
MODES = ("serve", "close", "refuse")
CERTIFICATES = ("ca", "self-signed")

# Stand-ins allowed inside info.uploadUrl, replaced when the reply is built.
UPLOAD_URL_TOKEN = "{uploadUrl}"
UPLOAD_BASE_TOKEN = "{uploadBase}"

DEFAULTS = {
    "info": {
        "mode": "serve",
        "certificate": "ca",
        "httpStatus": 200,
        "contentType": "text/xml",
        "root": INFO_ROOT,
        "status": "running",         # None leaves the element out
        "uploadUrl": UPLOAD_URL_TOKEN,  # None leaves the element out
        "body": None,                # text sent instead of the document
    },
    "upload": {
        "mode": "serve",
        "httpStatus": 200,
        "contentType": None,         # None: text/xml with a refusal, else text/plain
        "body": None,                # text sent instead of the default reply
        "refusal": None,             # dict: send a refusal document
    },
}

REFUSAL_DEFAULTS = {
    "root": REFUSAL_ROOT,
    "status": None,
    "errorDescription": None,
}


class BehaviourError(ValueError):
    """A setting that the collector cannot act on; the text says which."""


def defaults():
    return copy.deepcopy(DEFAULTS)


def merge(base, overlay):
    """Returns base with overlay laid over it; unknown keys are errors."""
    if not isinstance(overlay, dict):
        raise BehaviourError("the behaviour must be a JSON object")
    result = copy.deepcopy(base)
    for section, values in overlay.items():
        if section not in DEFAULTS:
            raise BehaviourError(f"unknown section '{section}' (known: info, upload)")
        if not isinstance(values, dict):
            raise BehaviourError(f"section '{section}' must be a JSON object")
        for key, value in values.items():
            if key not in DEFAULTS[section]:
                known = ", ".join(DEFAULTS[section])
                raise BehaviourError(f"unknown setting '{section}.{key}' (known: {known})")
            if key == "refusal" and isinstance(value, dict):
                unknown = set(value) - set(REFUSAL_DEFAULTS)
                if unknown:
                    raise BehaviourError(
                        f"unknown setting 'upload.refusal.{sorted(unknown)[0]}' "
                        "(known: root, status, errorDescription)")
                current = result[section][key] or REFUSAL_DEFAULTS
                value = {**current, **value}
            result[section][key] = copy.deepcopy(value)
    validate(result)
    return result


def _check(condition, text):
    if not condition:
        raise BehaviourError(text)


def _optional_text(value):
    return value is None or isinstance(value, str)


def validate(behaviour):
    for section in ("info", "upload"):
        values = behaviour[section]
        _check(values["mode"] in MODES,
               f"{section}.mode must be one of {', '.join(MODES)}, not {values['mode']!r}")
        status = values["httpStatus"]
        _check(isinstance(status, int) and not isinstance(status, bool) and 200 <= status <= 599,
               f"{section}.httpStatus must be a number from 200 to 599, not {status!r}")
        _check(_optional_text(values["contentType"]),
               f"{section}.contentType must be text or null")
        _check(_optional_text(values["body"]), f"{section}.body must be text or null")
    info = behaviour["info"]
    _check(info["certificate"] in CERTIFICATES,
           f"info.certificate must be one of {', '.join(CERTIFICATES)}, "
           f"not {info['certificate']!r}")
    _check(isinstance(info["root"], str) and info["root"] != "",
           "info.root must be a non-empty element name")
    _check(_optional_text(info["status"]), "info.status must be text or null")
    _check(_optional_text(info["uploadUrl"]), "info.uploadUrl must be text or null")
    refusal = behaviour["upload"]["refusal"]
    _check(refusal is None or isinstance(refusal, dict), "upload.refusal must be an object or null")
    if refusal is not None:
        _check(isinstance(refusal["root"], str) and refusal["root"] != "",
               "upload.refusal.root must be a non-empty element name")
        _check(_optional_text(refusal["status"]), "upload.refusal.status must be text or null")
        _check(_optional_text(refusal["errorDescription"]),
               "upload.refusal.errorDescription must be text or null")


class ControlFile:
    """The run-time overlay: a JSON file that callers write and remove.

    Read on every request so that a change applies to the very next one; it
    is parsed again only when its bytes changed (comparing bytes, not times,
    sees two quick writes of equal size as well). Writers should replace it
    atomically (write elsewhere, rename) so no half-written file is seen.
    """

    def __init__(self, path, startup):
        self.path = path
        self.startup = startup
        self._seen = None
        self._effective = startup

    def effective(self):
        """The behaviour now in force; raises BehaviourError on a bad file."""
        try:
            with open(self.path, "rb") as f:
                text = f.read()
        except FileNotFoundError:
            text = None
        if text != self._seen:
            if text is None:
                effective = self.startup
            else:
                effective = merge(self.startup, self._parse(text))
            # Threads may race here; at worst one parses the same bytes again.
            self._effective, self._seen = effective, text
        return self._effective

    def _parse(self, text):
        try:
            return json.loads(text)
        except ValueError as e:
            raise BehaviourError(f"control file {self.path} is not valid JSON: {e}") from None

    def write(self, overlay):
        """Checks and stores an overlay; returns the behaviour it gives."""
        effective = merge(self.startup, overlay)
        temporary = f"{self.path}.{os.getpid()}.{threading.get_ident()}.tmp"
        with open(temporary, "w", encoding="utf-8") as f:
            json.dump(overlay, f, indent=1)
        os.replace(temporary, self.path)
        return effective

    def remove(self):
        try:
            os.unlink(self.path)
        except FileNotFoundError:
            pass
