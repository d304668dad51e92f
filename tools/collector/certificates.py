"""Test certificates made with the openssl command-line tool at start-up.

A fresh CA per run signs the information server's certificate; a second,
self-signed certificate with the same names lets a test see verification fail
for want of trust alone, never because of a name mismatch.
"""

import os
import secrets
import subprocess
from dataclasses import dataclass

DAYS_VALID = "30"

# Our own configuration, so the machine's openssl.cnf cannot add or clash
# with extensions.
_CONFIG = """\
[req]
distinguished_name = dn
prompt = no

[dn]
CN = unused

[ca]
basicConstraints = critical, CA:TRUE
keyUsage = critical, keyCertSign, cRLSign
subjectKeyIdentifier = hash

[server]
basicConstraints = critical, CA:FALSE
keyUsage = critical, digitalSignature
extendedKeyUsage = serverAuth
subjectAltName = {names}
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid

[self]
basicConstraints = critical, CA:FALSE
keyUsage = critical, digitalSignature, keyCertSign
extendedKeyUsage = serverAuth
subjectAltName = {names}
subjectKeyIdentifier = hash
"""

# EC keys take milliseconds to make where RSA keys take a noticeable while.
_NEW_KEY = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes"]


class CertificateError(RuntimeError):
    """openssl failed or is missing; the text holds what it said."""


@dataclass(frozen=True)
class Certificates:
    ca_pem: str
    server_pem: str
    server_key: str
    self_signed_pem: str
    self_signed_key: str


def _openssl(folder, *args):
    try:
        done = subprocess.run(["openssl", *args], cwd=folder, capture_output=True,
                              text=True, check=False, timeout=60)
    except FileNotFoundError:
        raise CertificateError("the openssl command is not installed") from None
    if done.returncode != 0:
        raise CertificateError(f"openssl {args[0]} failed: {done.stderr.strip()}")


def make_certificates(folder):
    """Writes a CA, a server certificate it signs and a self-signed one.

    The server names cover 127.0.0.1, ::1 and localhost. Old files in the
    folder are replaced: every run gets its own CA.
    """
    os.makedirs(folder, mode=0o700, exist_ok=True)
    config = os.path.join(folder, "openssl.cnf")
    with open(config, "w", encoding="ascii") as f:
        f.write(_CONFIG.format(names="IP:127.0.0.1, IP:::1, DNS:localhost"))

    run_tag = secrets.token_hex(4)
    _openssl(folder, "req", "-x509", "-config", config, "-extensions", "ca", *_NEW_KEY,
             "-keyout", "ca.key", "-out", "ca.pem", "-days", DAYS_VALID,
             "-subj", f"/O=Marlowen test collector/CN=Test collector CA {run_tag}")
    _openssl(folder, "req", "-new", "-config", config, *_NEW_KEY,
             "-keyout", "server.key", "-out", "server.csr", "-subj", "/CN=localhost")
    _openssl(folder, "x509", "-req", "-in", "server.csr", "-CA", "ca.pem", "-CAkey", "ca.key",
             "-set_serial", "0x" + secrets.token_hex(8), "-days", DAYS_VALID,
             "-extfile", config, "-extensions", "server", "-out", "server.pem")
    _openssl(folder, "req", "-x509", "-config", config, "-extensions", "self", *_NEW_KEY,
             "-keyout", "self-signed.key", "-out", "self-signed.pem", "-days", DAYS_VALID,
             "-subj", f"/CN=localhost/O=Self-signed {run_tag}")
    os.unlink(os.path.join(folder, "server.csr"))

    def path(name):
        return os.path.abspath(os.path.join(folder, name))
    return Certificates(ca_pem=path("ca.pem"), server_pem=path("server.pem"),
                        server_key=path("server.key"),
                        self_signed_pem=path("self-signed.pem"),
                        self_signed_key=path("self-signed.key"))
