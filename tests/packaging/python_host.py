"""A host without functions of its own: both libraries as they are, and a server that takes SHA-256 only.
Usage: python_host.py LIBRTSPTAP_DIGEST LIBRTSPTAP"""
import ctypes
import hashlib
import re
import socket
import sys
import threading

USER, PASSWORD = "j\u00e4s\u00f8n", "Secret, or not?"


def is_answered(request):
    field = dict(re.findall(r'(\w+)="?([^",\r]*)"?', request.partition("Authorization: Digest ")[2]))
    hashed = lambda text: hashlib.sha256(text.encode()).hexdigest()
    user, method = hashed(f"{USER}:cam:{PASSWORD}"), hashed("OPTIONS:" + request.split()[1])
    answer = ":".join([user, "n1", field.get("nc", ""), field.get("cnonce", ""), "auth", method])
    return field.get("response") == hashed(answer)


def serve(listener):
    connection = listener.accept()[0]
    while data := connection.recv(65536):
        number = re.search(rb"CSeq: \d+", data).group().decode()
        head = "200 OK" if is_answered(data.decode()) else "401 Unauthorized\r\nWWW-Authenticate: Digest " \
            'realm="cam", nonce="n1", qop="auth", algorithm=SHA-256'
        connection.sendall(f"RTSP/1.0 {head}\r\n{number}\r\n\r\n".encode())


ctypes.CDLL(sys.argv[1], mode=ctypes.RTLD_GLOBAL)
library = ctypes.CDLL(sys.argv[2])
library.RTSPClientCreate.restype = ctypes.c_ssize_t
with socket.create_server(("127.0.0.1", 0)) as listener:
    threading.Thread(target=serve, args=[listener], daemon=True).start()
    client = ctypes.c_ssize_t(library.RTSPClientCreate())
    library.RTPClientSetAudioVideoBufferSize(client, 5000, 5000)
    results = [library.RTSPTapSetCredentials(client, USER.encode(), PASSWORD.encode()),
               library.RTSPClientConnect(client, b"127.0.0.1", listener.getsockname()[1], b"live", 1, None),
               library.RTSPClientSendOptionsRequest(client, None, None, None),
               library.RTSPTapSetCredentials(client, USER.encode(), b"wrong"),
               library.RTSPClientSendOptionsRequest(client, None, None, None),
               library.RTSPClientDestroy(client)]
sys.exit(results != [0, 0, 0, 0, -88, 0] and f"FAILED: {results}")
