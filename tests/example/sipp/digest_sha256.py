#!/usr/bin/env python3
# A SIP client that registers alice with SHA-256 and MD5 digest credentials,
# which SIPp cannot compute, and checks the registrar's nonce handling:
# counts may rise but never repeat, a forged nonce is challenged again, an
# expired one is answered stale=true (the test sets NonceLifetime=2).
import hashlib
import re
import socket
import sys
import time
import uuid

LIFETIME = 2
host, port = sys.argv[1], int(sys.argv[2])
sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
sock.bind((host, 0))
sock.settimeout(10)
local = sock.getsockname()[1]
call_id = uuid.uuid4().hex
cseq = 0


def register(authorization=None):
    """Sends a REGISTER; returns the status code and the challenges in order."""
    global cseq
    cseq += 1
    lines = [f"REGISTER sip:example.com SIP/2.0",
             f"Via: SIP/2.0/UDP {host}:{local};branch=z9hG4bK{uuid.uuid4().hex}",
             "From: <sip:alice@example.com>;tag=py", "To: <sip:alice@example.com>", f"Call-ID: {call_id}",
             f"CSeq: {cseq} REGISTER", f"Contact: <sip:alice@{host}:{local}>", "Expires: 600", "Max-Forwards: 70"]
    if authorization:
        lines.append("Authorization: " + authorization)
    sock.sendto(("\r\n".join(lines + ["Content-Length: 0", "", ""])).encode(), (host, port))
    answer = sock.recv(65535).decode()
    challenges = [dict(re.findall(r'(\w+)="?([^",]*)"?', value))
                  for value in re.findall(r"^WWW-Authenticate: Digest (.*)\r$", answer, re.M)]
    return int(answer.split()[1]), challenges


def credentials(nonce, count, algorithm="SHA-256", password="alice-secret", user="alice"):
    def digest(text):
        return hashlib.new("sha256" if algorithm == "SHA-256" else "md5", text.encode()).hexdigest()
    nc, cnonce = f"{count:08x}", uuid.uuid4().hex[:8]
    response = digest(f"{digest(user + ':example.com:' + password)}:{nonce}:{nc}:{cnonce}:auth:"
                      f"{digest('REGISTER:sip:example.com')}")
    return (f'Digest username="{user}", realm="example.com", nonce="{nonce}", uri="sip:example.com", '
            f'response="{response}", algorithm={algorithm}, qop=auth, nc={nc}, cnonce="{cnonce}"')


def expect(step, answer, code, stale=None):
    """Checks the code, and that a 401 challenges with both algorithms, stale or not."""
    if answer[0] != code or [c.get("stale") for c in answer[1]] != [stale] * (2 if code == 401 else 0):
        sys.exit(f"{step}: expected {code} (stale {stale}), got {answer}")
    print(f"{step}: {code}")
    return answer[1]


challenges = expect("no credentials", register(), 401)
if [c["algorithm"] for c in challenges] != ["SHA-256", "MD5"] or {c["qop"] for c in challenges} != {"auth"} \
        or len({c["nonce"] for c in challenges}) != 1 or challenges[0]["realm"] != "example.com":
    sys.exit(f"unexpected challenges {challenges}")
nonce = challenges[0]["nonce"]
forged = nonce[:-4] + ("AAAA" if not nonce.endswith("AAAA") else "BBBB")
for step, authorization, code in [
        ("SHA-256, nc 1", credentials(nonce, 1), 200),
        ("SHA-256, nc 1 replayed", credentials(nonce, 1), 401),
        ("SHA-256, nc 2", credentials(nonce, 2), 200),
        ("MD5, nc 3", credentials(nonce, 3, "MD5"), 200),
        ("MD5, nc 2 replayed", credentials(nonce, 2, "MD5"), 401),
        ("wrong password, nc 4", credentials(nonce, 4, password="wrong"), 401),
        ("unknown user", credentials(nonce, 1, user="mallory"), 401),
        ("forged nonce", credentials(forged, 1), 401)]:
    expect(step, register(authorization), code)
time.sleep(LIFETIME + 1.5)
fresh = expect("expired nonce", register(credentials(nonce, 5)), 401, stale="true")[0]["nonce"]
expect("fresh nonce after stale", register(credentials(fresh, 1)), 200)
