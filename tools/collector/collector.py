#!/usr/bin/env python3
"""Test collector: an HTTPS information server and a report upload endpoint on loopback.

    collector.py --state DIR [--port-file FILE] [options]

Starts the servers, writes DIR/collector.json (and --port-file, --env-file)
once every port listens, and runs until SIGTERM/SIGINT, POST /stop on the
control port, --max-uploads answered posts or --timeout seconds. See
docs/collector.md for the files it keeps and how to steer it at run time.
"""

import argparse
import json
import os
import signal
import ssl
import sys
import threading
import time
from datetime import datetime, timezone

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

import behaviour as bh  # noqa: E402
from certificates import CertificateError, make_certificates  # noqa: E402
from handlers import HANDLERS  # noqa: E402
from listeners import Listener, loopback_address, url_host  # noqa: E402

DEFAULT_MAX_BODY = 512 * 1024 * 1024
DEFAULT_TIMEOUT = 600.0
# A stalled peer must not hold a thread for ever; a 100 MB body on loopback
# never pauses this long between two reads.
IO_TIMEOUT = 60.0
WATCH_INTERVAL = 0.05

EXIT_OK = 0
EXIT_FAILED = 1
EXIT_TIMED_OUT = 3


def utc_now():
    return datetime.now(timezone.utc).strftime("%Y-%m-%dT%H:%M:%S.%f")[:-3] + "Z"


def write_atomically(path, text):
    temporary = f"{path}.{os.getpid()}.tmp"
    with open(temporary, "w", encoding="utf-8") as f:
        f.write(text)
    os.replace(temporary, path)


class Collector:
    def __init__(self, options, startup):
        family, self.host = loopback_address(options.host)
        self.state = os.path.abspath(options.state)
        self.verbose = options.verbose
        self.max_body = options.max_body
        self.max_uploads = options.max_uploads
        self.received_dir = os.path.join(self.state, "received")
        self.bodies_dir = os.path.join(self.state, "bodies")
        self.uploads_log = os.path.join(self.state, "uploads.jsonl")
        self.requests_log = os.path.join(self.state, "requests.jsonl")
        for folder in (self.state, self.received_dir, self.bodies_dir):
            os.makedirs(folder, exist_ok=True)
        control_path = os.path.join(self.state, "control.json")
        # A run starts from its own options, never from an earlier run's overlay.
        if os.path.exists(control_path):
            os.unlink(control_path)
        self.control = bh.ControlFile(control_path, startup)

        self.certificates = make_certificates(os.path.join(self.state, "tls"))
        self.tls = {
            "ca": self._server_context(self.certificates.server_pem,
                                       self.certificates.server_key),
            "self-signed": self._server_context(self.certificates.self_signed_pem,
                                                self.certificates.self_signed_key),
        }
        self.upload_scheme = options.upload_scheme
        self.listeners = {
            role: Listener(role, family, self.host, port, HANDLERS[role], self)
            for role, port in (("info", options.info_port), ("upload", options.upload_port),
                               ("control", options.control_port))
        }
        self.upload_url = None
        self.upload_base = None

        # Re-entrant: the SIGTERM handler runs on the main thread and takes it
        # in stop(), possibly while that thread already holds it.
        self._lock = threading.RLock()
        # A state folder used before keeps its bodies; numbering goes on after them.
        self._sequence = max((int(name.split(".")[0]) for name in os.listdir(self.bodies_dir)
                              if name.endswith(".body") and name.split(".")[0].isdigit()),
                             default=0)
        self._answered = 0
        self._stopped = threading.Event()
        self._stop_reason = None
        self._exit_code = EXIT_OK
        self._last_control_error = None
        self._last_switch_error = None
        self._switch_lock = threading.Lock()

    @staticmethod
    def _server_context(certificate, key):
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(certificate, key)
        return context

    # ---- start and run -------------------------------------------------

    def start(self):
        startup = self.control.startup
        for role in ("info", "upload", "control"):
            refusing = role != "control" and startup[role]["mode"] == "refuse"
            self.listeners[role].start(refusing=refusing)
        def base(role, scheme):
            return f"{scheme}://{url_host(self.host)}:{self.listeners[role].port}"
        self.upload_base = base("upload", self.upload_scheme)
        self.upload_url = self.upload_base + bh.UPLOAD_PATH
        info_port = self.listeners["info"].port
        return {
            "pid": os.getpid(),
            "state": self.state,
            "host": self.host,
            "infoServer": f"{url_host(self.host)}:{info_port}",
            "infoPort": info_port,
            "infoUrl": base("info", "https") + bh.INFO_PATH,
            "uploadPort": self.listeners["upload"].port,
            "uploadScheme": self.upload_scheme,
            "uploadUrl": self.upload_url,
            "controlPort": self.listeners["control"].port,
            "controlUrl": base("control", "http") + "/control",
            "caBundle": self.certificates.ca_pem,
            "selfSignedCertificate": self.certificates.self_signed_pem,
            "controlFile": self.control.path,
            "uploadsLog": self.uploads_log,
            "requestsLog": self.requests_log,
            "receivedDir": self.received_dir,
            "bodiesDir": self.bodies_dir,
            "maxBody": self.max_body,
        }

    def run(self, timeout):
        """Watches until something ends the run; returns the exit code."""
        deadline = time.monotonic() + timeout if timeout > 0 else None
        parent = os.getppid()
        while not self._stopped.wait(WATCH_INTERVAL):
            if deadline is not None and time.monotonic() >= deadline:
                self.stop(f"timeout of {timeout:g} s", EXIT_TIMED_OUT)
            elif os.getppid() != parent:
                # Whoever started us is gone; nobody is left to stop us.
                self.stop("parent process ended", EXIT_OK)
            else:
                self.apply_modes()
        return self._exit_code

    def stop(self, reason, code):
        with self._lock:
            if self._stop_reason is None:
                self._stop_reason = reason
                self._exit_code = code
        self._stopped.set()

    def close(self):
        for listener in self.listeners.values():
            listener.close()
        return self._stop_reason, self._answered

    # ---- behaviour -----------------------------------------------------

    def behaviour(self):
        return self.control.effective()

    def apply_modes(self):
        """Makes the listeners refuse or serve as the behaviour in force says."""
        # The watch loop and a control request both come here. Reading the
        # behaviour and switching the ports is one step: otherwise the loop
        # can read "refuse", a control request switch to "serve" and answer,
        # and the loop's stale "refuse" land after it, refusing the client
        # that was just told the port serves.
        with self._switch_lock:
            self._apply_modes_locked()

    def _apply_modes_locked(self):
        try:
            current = self.behaviour()
        except bh.BehaviourError as e:
            if str(e) != self._last_control_error:
                print(f"test collector: {e}", file=sys.stderr, flush=True)
                self._last_control_error = str(e)
            return
        self._last_control_error = None
        for role in ("info", "upload"):
            try:
                self.listeners[role].set_refusing(current[role]["mode"] == "refuse")
            except OSError as e:
                # Someone took the port while it was let go; the watch loop tries again.
                text = f"test collector: cannot switch the {role} port: {e}"
                if text != self._last_switch_error:
                    print(text, file=sys.stderr, flush=True)
                    self._last_switch_error = text

    def set_overlay(self, overlay):
        with self._lock:
            current = self.control.write(overlay)
        self.apply_modes()
        return current

    def clear_overlay(self):
        with self._lock:
            self.control.remove()
        self.apply_modes()
        return self.behaviour()

    # ---- connections and logs -------------------------------------------

    def handle_connection(self, server, connection, client_address):
        """Runs on the connection's own thread: mode, TLS, then the handler."""
        role = server.role
        connection.settimeout(IO_TIMEOUT)
        try:
            if role != "control":
                try:
                    section = self.behaviour()[role]
                except bh.BehaviourError:
                    section = None  # served, so the handler can answer 500 with the reason
                mode = section["mode"] if section else "serve"
                if mode != "serve":
                    # "refuse" lands here only in the moment before the port is let go.
                    self.record_request(role, client_address, None, None, None,
                                        "closed" if mode == "close" else "refused")
                    return
                context = None
                if role == "info":
                    context = self.tls[section["certificate"] if section else "ca"]
                elif self.upload_scheme == "https":
                    context = self.tls["self-signed"]
                if context is not None:
                    try:
                        connection = context.wrap_socket(connection, server_side=True)
                    except (ssl.SSLError, OSError) as e:
                        self.record_request(role, client_address, None, None, None,
                                            f"tls-failed: {e}")
                        return
            server.RequestHandlerClass(connection, client_address, server)
        except OSError:
            pass  # the peer went away; its request log line says how far it got
        finally:
            try:
                connection.close()
            except OSError:
                pass

    def next_upload(self):
        with self._lock:
            self._sequence += 1
            sequence = self._sequence
        return sequence, os.path.join(self.bodies_dir, f"{sequence:06d}.body")

    def upload_answered(self):
        with self._lock:
            self._answered += 1
            reached = self.max_uploads > 0 and self._answered >= self.max_uploads
        if reached:
            self.stop(f"{self.max_uploads} upload(s) answered", EXIT_OK)

    def _append(self, path, entry):
        line = json.dumps({"time": utc_now(), **entry}, ensure_ascii=False) + "\n"
        with self._lock:
            with open(path, "a", encoding="utf-8") as f:
                f.write(line)

    def record_upload(self, entry):
        self._append(self.uploads_log, entry)

    def record_request(self, role, client_address, method, target, status, action):
        self._append(self.requests_log, {
            "role": role, "client": f"{client_address[0]}:{client_address[1]}",
            "method": method, "target": target, "status": status, "action": action})

    def read_log(self, path):
        with self._lock:
            try:
                with open(path, encoding="utf-8") as f:
                    return [json.loads(line) for line in f if line.strip()]
            except FileNotFoundError:
                return []


# ---- command line --------------------------------------------------------

def parse_options(argv):
    parser = argparse.ArgumentParser(
        prog="collector.py",
        description="Loopback information server and report upload endpoint for tests "
                    "and the demo.")
    parser.add_argument("--state", required=True, metavar="DIR",
                        help="folder for certificates, received zips, bodies and logs")
    parser.add_argument("--port-file", metavar="FILE",
                        help="also write the start-up JSON here once listening")
    parser.add_argument("--env-file", metavar="FILE",
                        help="write MARLOWEN_INFO_SERVER and MARLOWEN_CA_BUNDLE lines here")
    parser.add_argument("--host", default="127.0.0.1",
                        help="loopback address to listen on (127.0.0.1, ::1 or localhost)")
    for role in ("info", "upload", "control"):
        parser.add_argument(f"--{role}-port", type=int, default=0, metavar="N",
                            help=f"port of the {role} server (default: chosen by the system)")
    parser.add_argument("--upload-scheme", choices=("http", "https"), default="http",
                        help="https serves the upload endpoint with the self-signed certificate")
    parser.add_argument("--max-uploads", type=int, default=0, metavar="N",
                        help="end after N answered posts (0: no limit)")
    parser.add_argument("--timeout", type=float, default=DEFAULT_TIMEOUT, metavar="S",
                        help=f"end after S seconds (default {DEFAULT_TIMEOUT:g}; 0: no limit)")
    parser.add_argument("--max-body", type=int, default=DEFAULT_MAX_BODY, metavar="BYTES",
                        help="largest request body taken (default 512 MB)")
    parser.add_argument("--verbose", action="store_true", help="print each request")

    group = parser.add_argument_group("behaviour (also settable at run time)")
    group.add_argument("--behaviour", metavar="FILE",
                       help="JSON overlay in the control file's form, applied before "
                            "the options below")
    group.add_argument("--info-mode", choices=bh.MODES)
    group.add_argument("--info-certificate", choices=bh.CERTIFICATES)
    group.add_argument("--self-signed", action="store_const", const="self-signed",
                       dest="info_certificate",
                       help="serve the information with the self-signed certificate")
    group.add_argument("--info-http-status", type=int, metavar="N")
    group.add_argument("--info-content-type", metavar="TYPE")
    group.add_argument("--info-root", metavar="NAME")
    group.add_argument("--info-status", metavar="TEXT")
    group.add_argument("--no-info-status", action="store_true")
    group.add_argument("--info-upload-url", metavar="URL",
                       help="{uploadUrl} and {uploadBase} stand for the collector's own")
    group.add_argument("--no-upload-url", action="store_true")
    group.add_argument("--info-body", metavar="TEXT")
    group.add_argument("--upload-mode", choices=bh.MODES)
    group.add_argument("--upload-http-status", type=int, metavar="N")
    group.add_argument("--upload-content-type", metavar="TYPE")
    group.add_argument("--upload-body", metavar="TEXT")
    group.add_argument("--refusal-root", metavar="NAME")
    group.add_argument("--refusal-status", metavar="TEXT")
    group.add_argument("--refusal-error", metavar="TEXT")
    options = parser.parse_args(argv)
    if options.max_body < 0 or options.max_uploads < 0 or options.timeout < 0:
        parser.error("--max-body, --max-uploads and --timeout take no negative values")
    if options.info_status is not None and options.no_info_status:
        parser.error("--info-status and --no-info-status exclude each other")
    if options.info_upload_url is not None and options.no_upload_url:
        parser.error("--info-upload-url and --no-upload-url exclude each other")
    return options


def startup_behaviour(options):
    result = bh.defaults()
    if options.behaviour:
        with open(options.behaviour, encoding="utf-8") as f:
            try:
                overlay = json.load(f)
            except ValueError as e:
                raise bh.BehaviourError(f"{options.behaviour} is not valid JSON: {e}") from None
        result = bh.merge(result, overlay)

    info, upload = {}, {}
    for target, key, value in (
            (info, "mode", options.info_mode),
            (info, "certificate", options.info_certificate),
            (info, "httpStatus", options.info_http_status),
            (info, "contentType", options.info_content_type),
            (info, "root", options.info_root),
            (info, "status", options.info_status),
            (info, "uploadUrl", options.info_upload_url),
            (info, "body", options.info_body),
            (upload, "mode", options.upload_mode),
            (upload, "httpStatus", options.upload_http_status),
            (upload, "contentType", options.upload_content_type),
            (upload, "body", options.upload_body)):
        if value is not None:
            target[key] = value
    if options.no_info_status:
        info["status"] = None
    if options.no_upload_url:
        info["uploadUrl"] = None
    refusal = {key: value for key, value in (("root", options.refusal_root),
                                             ("status", options.refusal_status),
                                             ("errorDescription", options.refusal_error))
               if value is not None}
    if refusal:
        upload["refusal"] = refusal
    return bh.merge(result, {"info": info, "upload": upload})


def main(argv=None):
    options = parse_options(sys.argv[1:] if argv is None else argv)
    collector = None
    try:
        collector = Collector(options, startup_behaviour(options))
        ready = collector.start()
    except (bh.BehaviourError, CertificateError, OSError, ValueError) as e:
        if collector is not None:
            collector.close()
        print(f"test collector: cannot start: {e}", file=sys.stderr)
        return EXIT_FAILED

    for number in (signal.SIGTERM, signal.SIGINT):
        signal.signal(number, lambda signum, frame: collector.stop(
            signal.Signals(signum).name, EXIT_OK))
    text = json.dumps(ready, indent=1) + "\n"
    try:
        write_atomically(os.path.join(collector.state, "collector.json"), text)
        if options.env_file:
            write_atomically(options.env_file,
                             f"MARLOWEN_INFO_SERVER={ready['infoServer']}\n"
                             f"MARLOWEN_CA_BUNDLE={ready['caBundle']}\n")
        # Written last: a caller that waits for this file finds everything else ready.
        if options.port_file:
            write_atomically(options.port_file, text)
        print(json.dumps(ready), flush=True)
    except OSError as e:
        collector.close()
        print(f"test collector: cannot announce the ports: {e}", file=sys.stderr)
        return EXIT_FAILED

    code = collector.run(options.timeout)
    reason, answered = collector.close()
    print(f"test collector: stopped ({reason}) after {answered} answered upload(s)",
          file=sys.stderr, flush=True)
    return code


if __name__ == "__main__":
    sys.exit(main())
