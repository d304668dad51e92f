#!/usr/bin/env python3
"""Posts one large report to the test collector; prints time and peak memory.

    python3 bench/collector_upload_bench.py [--megabytes 100]

Fails (exit 1) unless the collector answers 200 and keeps the zip byte for byte.
The body is streamed from a file, so this process's own memory stays small.
"""

import argparse
import hashlib
import http.client
import json
import os
import subprocess
import sys
import tempfile
import time
import uuid

COLLECTOR = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tools",
                         "collector", "collector.py")
CHUNK = 1 << 20


def write_body(path, megabytes, file_name, host):
    """Writes the report post around random zip bytes; returns (Content-Type, sha256)."""
    boundary = ("--NextPart--ML" + str(uuid.uuid4()).upper()).encode()
    size = megabytes * CHUNK
    part_head = (b"--" + boundary + b'\r\nContent-Disposition: form/data; name="uniqueId"\r\n'
                 b"\r\ndefault\r\n--" + boundary + b"\r\n"
                 b"Content-Type: application/x-marlowen-crash-report\r\n"
                 b"Content-Transfer-Encoding: binary\r\n"
                 b'Content-Disposition: attachment; filename="' + file_name.encode() + b'"\r\n'
                 b"Content-Length: " + str(size).encode() + b"\r\n\r\n")
    closing = b"\r\n--" + boundary + b"--"
    content_type = b'multipart/form-data; boundary="' + boundary + b'"'
    head = (b"Content-Length: " + str(len(part_head) + size + len(closing)).encode() + b"\r\n"
            b"Content-Type: " + content_type + b"\r\nHost: " + host.encode() + b"\r\n"
            b"User-Agent: Marlowen/1.0\r\n\r\n")
    digest = hashlib.sha256()
    with open(path, "wb") as f:
        f.write(head + part_head)
        for _ in range(megabytes):
            chunk = os.urandom(CHUNK)
            digest.update(chunk)
            f.write(chunk)
        f.write(closing)
    return content_type.decode(), digest.hexdigest()


def peak_memory_kb(pid):
    with open(f"/proc/{pid}/status", encoding="ascii") as f:
        for line in f:
            if line.startswith("VmHWM:"):
                return int(line.split()[1])
    return -1


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--megabytes", type=int, default=100)
    options = parser.parse_args()

    with tempfile.TemporaryDirectory(prefix="collector-bench-") as folder:
        port_file = os.path.join(folder, "ports.json")
        process = subprocess.Popen([sys.executable, COLLECTOR, "--state",
                                    os.path.join(folder, "state"), "--port-file", port_file,
                                    "--timeout", "600"], stdout=subprocess.DEVNULL)
        try:
            while not os.path.exists(port_file):
                if process.poll() is not None:
                    print("collector did not start", file=sys.stderr)
                    return 1
                time.sleep(0.02)
            with open(port_file, encoding="utf-8") as f:
                ready = json.load(f)
            body_path = os.path.join(folder, "body")
            file_name = "Bench_20261121000000_1_1.zip"
            content_type, expected = write_body(body_path, options.megabytes, file_name,
                                                f"127.0.0.1:{ready['uploadPort']}")
            connection = http.client.HTTPConnection("127.0.0.1", ready["uploadPort"],
                                                    timeout=300)
            started = time.monotonic()
            with open(body_path, "rb") as body:
                connection.request("POST", "/CrashReportServer/Upload", body=body, headers={
                    "Content-Type": content_type,
                    "Content-Length": str(os.path.getsize(body_path))})
                response = connection.getresponse()
                response.read()
            elapsed = time.monotonic() - started
            peak = peak_memory_kb(ready["pid"])

            digest = hashlib.sha256()
            with open(os.path.join(ready["receivedDir"], file_name), "rb") as f:
                for chunk in iter(lambda: f.read(CHUNK), b""):
                    digest.update(chunk)
            kept = digest.hexdigest() == expected
            print(f"zip {options.megabytes} MB: status {response.status}, "
                  f"{elapsed:.2f} s, collector peak {peak / 1024:.0f} MB, "
                  f"kept byte for byte: {'yes' if kept else 'NO'}")
            return 0 if response.status == 200 and kept else 1
        finally:
            process.terminate()
            process.wait(timeout=30)


if __name__ == "__main__":
    sys.exit(main())
