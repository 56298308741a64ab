#!/usr/bin/env python3
"""Stands before a server of plain RTSP and speaks TLS or HTTP in its place, in as odd a way as asked for.

relay.py SERVER_PORT [cert=FILE] [root=FILE] [tls=1.2] [cut=1] [http=STATUS] [head=TEXT] [say=HEX] [silent=1]

cert: TLS with this certificate and key; root: and asks for a certificate of the client's that this one has signed.
cut: what is sent leaves byte by byte. http: takes tunnels, and answers GET with this status; head: and this line.
say: sends these bytes to whoever comes and closes. silent: says nothing. Prints its port. Connections end
without TLS's goodbye.
"""
import base64
import signal
import socket
import ssl
import sys
import threading

OPTIONS = dict(text.split("=", 1) for text in sys.argv[2:])
GETS = {}  # by cookie: the connection of a tunnel's GET, and the server's


class Plain:
    def __init__(self, sock):
        self.sock = sock

    def receive(self):
        return self.sock.recv(65536)

    def send(self, data):
        step = 1 if "cut" in OPTIONS else max(len(data), 1)
        for at in range(0, len(data), step):
            self.sock.sendall(data[at : at + step])

    def close(self):
        try:
            self.sock.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass


class Tls(Plain):
    def __init__(self, sock):
        super().__init__(sock)
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(OPTIONS["cert"])
        if "tls" in OPTIONS:
            context.maximum_version = ssl.TLSVersion.TLSv1_2
        if "root" in OPTIONS:
            context.load_verify_locations(OPTIONS["root"])
            context.verify_mode = ssl.CERT_REQUIRED
        self.coming, self.going, self.lock = ssl.MemoryBIO(), ssl.MemoryBIO(), threading.Lock()
        self.machine = context.wrap_bio(self.coming, self.going, server_side=True)
        self.turn(self.machine.do_handshake)

    def turn(self, step):
        while True:
            with self.lock:
                try:
                    result, done = step(), True
                except ssl.SSLWantReadError:
                    result, done = None, False
                finally:
                    Plain.send(self, self.going.read())
            if done:
                return result
            data = self.sock.recv(65536)
            with self.lock:
                self.coming.write(data) if data else self.coming.write_eof()

    def receive(self):
        return self.turn(lambda: self.machine.read(65536))

    def send(self, data):
        self.turn(lambda: self.machine.write(data))


def pump(source, sink):
    try:
        while data := source.receive():
            sink.send(data)
    except (OSError, ssl.SSLError):
        pass
    sink.close()


def head_of(client):
    text = b""
    while b"\r\n\r\n" not in text:
        data = client.receive()
        if not data:
            raise OSError
        text += data
    head, rest = text.split(b"\r\n\r\n", 1)
    lines = head.decode().split("\r\n")
    return lines[0], {name.lower(): value for name, value in (line.split(": ", 1) for line in lines[1:])}, rest


def tunnel(client, server):
    request, headers, body = head_of(client)
    cookie = headers["x-sessioncookie"]
    if request.startswith("GET"):
        assert headers["accept"] == "application/x-rtsp-tunnelled", headers
        GETS[cookie] = Plain(socket.create_connection(("127.0.0.1", server)))
        further = OPTIONS.get("head", "Content-Type: application/x-rtsp-tunnelled")
        client.send(f"HTTP/1.0 {OPTIONS['http']}\r\n{further}\r\n\r\n".encode())
        return pump(GETS[cookie], client)
    assert request.startswith("POST"), request
    while True:
        whole = len(body) // 4 * 4
        GETS[cookie].send(base64.b64decode(body[:whole], validate=True))
        body = body[whole:]
        data = client.receive()
        if not data:
            return GETS[cookie].close()
        body += data


def serve(sock, server):
    sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    if "say" in OPTIONS:
        sock.sendall(bytes.fromhex(OPTIONS["say"]))
    if "say" in OPTIONS or "silent" in OPTIONS:
        sock.recv(65536)
        return "say" in OPTIONS and sock.close()
    try:
        client = Tls(sock) if "cert" in OPTIONS else Plain(sock)
        if "http" in OPTIONS:
            return tunnel(client, server)
        plain = Plain(socket.create_connection(("127.0.0.1", server)))
        threading.Thread(target=pump, args=(client, plain), daemon=True).start()
        pump(plain, client)
    except (OSError, ssl.SSLError):
        sock.close()


KEPT = []  # a connection is closed when it is forgotten
listener = socket.create_server(("127.0.0.1", 0))
print(listener.getsockname()[1], flush=True)


def accept():
    while True:
        sock, _ = listener.accept()
        KEPT.append(sock)
        threading.Thread(target=serve, args=(sock, int(sys.argv[1])), daemon=True).start()


threading.Thread(target=accept, daemon=True).start()
signal.pause()
