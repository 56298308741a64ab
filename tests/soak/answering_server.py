#!/usr/bin/env python3
# An RTSP server for many clients at once: it answers whatever it is asked and sends numbered packets of two streams,
# H.264 on track 1 and AAC on track 2. Prints its port, ends with its parent. What it does besides is written in the path
# of the URL, words joined by commas; REQUEST is OPTIONS, DESCRIBE, SETUP1, SETUP2, PLAY, PAUSE or TEARDOWN:
#
#     REQUEST=454          answers with that status      split      sends the description in two pieces
#     end:REQUEST          closes instead of answering   digest     wants a password
#     half:REQUEST         closes amid the answer        group      grants multicast
#     after:REQUEST        closes behind answer, packets gather=16  holds that many DESCRIBEs, answers them together
#     silent:REQUEST       does not answer               stranger   names another session in every answer
#     rate=2000            sends kbit/s of each stream   media      sends packets before every answer, too
#                          while it plays                burst=3    packets of each stream at each PLAY, without a rate
#
# Every other close is a reset. Replies to SETUP tell the client's ports again, as "client_port=A-B"; those to PAUSE and
# TEARDOWN the packets sent so far, as "X-Sent: VIDEO AUDIO".
import asyncio
import itertools
import re
import socket
import struct
import time

SDP = ("v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=Numbers\r\nc=IN IP4 0.0.0.0\r\nt=0 0\r\n"
       "m=video 0 RTP/AVP 96\r\nb=AS:4000\r\na=rtpmap:96 H264/90000\r\n"
       "a=fmtp:96 packetization-mode=1;sprop-parameter-sets=Z0IAH5WoFAFuQA==,aM48gA==\r\na=control:track1\r\n"
       "m=audio 0 RTP/AVP 97\r\na=rtpmap:97 mpeg4-generic/44100/2\r\n"
       "a=fmtp:97 streamtype=5;mode=AAC-hbr;config=1210;sizelength=13\r\na=control:track2\r\n")
SENDER_REPORT = b"\x80\xc8\0\x06" + 24 * b"\x01"
FIRST_SEQUENCE_NUMBER = 64000
PACKET_BYTES = 600
MOST_UNSENT = 1 << 20  # bytes; a client that does not read gets no more packets
MOST_AT_ONCE = 64      # packets made up for when the machine has paused
TICK = 0.004           # seconds

ends = itertools.count()
gathered = []  # the DESCRIBEs that were held


def open_media(port=60000):  # for RTP and RTCP, above the ports that clients choose
    pair = [socket.socket(socket.AF_INET, socket.SOCK_DGRAM) for _ in range(2)]
    try:
        for offset, sock in enumerate(pair):
            sock.bind(("127.0.0.1", port + offset))
        return pair
    except OSError:
        return open_media(port + 2)


media = open_media()


class Stream:
    def __init__(self, connection, index):
        self.connection, self.index = connection, index
        self.address, self.pump, self.sent = None, None, 0  # no address: interleaved

    def send(self, rtcp, packet):
        if self.address:
            media[rtcp].sendto(packet, (self.address[0], self.address[1] + rtcp))
        else:
            self.connection.writer.write(struct.pack("!cBH", b"$", 2 * self.index + rtcp, len(packet)) + packet)

    def send_packets(self, count, size=PACKET_BYTES):
        # The payload is the packet's running number, again and again.
        for number in range(self.sent, self.sent + count):
            header = struct.pack("!BBHII", 0x80, 96 + self.index, (FIRST_SEQUENCE_NUMBER + number) % 65536, number, 7)
            self.send(0, header + struct.pack("!I", number) * ((size - 12) // 4))
        self.sent += count

    async def send_at(self, kbits):
        step = PACKET_BYTES * 8 / (kbits * 1000)
        due = time.monotonic()
        while True:
            late = int((time.monotonic() - due) / step)
            due += late * step
            if self.connection.writer.transport.get_write_buffer_size() < MOST_UNSENT:
                self.send_packets(min(late, MOST_AT_ONCE))
            await asyncio.sleep(TICK)

    def play(self):
        words = self.connection.words
        if "rate" not in words:
            self.send_packets(int(words.get("burst", 3)), 100)
        elif not self.pump:
            self.pump = asyncio.create_task(self.send_at(int(words["rate"])))
        self.send(1, SENDER_REPORT)

    def halt(self):
        if self.pump:
            self.pump.cancel()
        self.pump = None


class Connection:
    def __init__(self, reader, writer):
        self.reader, self.writer, self.words = reader, writer, {}
        self.streams = [Stream(self, index) for index in range(2)]

    async def serve(self):
        try:
            while not self.writer.is_closing():
                start = await self.reader.readexactly(1)
                if start == b"$":
                    length = (await self.reader.readexactly(3))[1:]
                    await self.reader.readexactly(int.from_bytes(length, "big"))
                else:
                    await self.answer((start + await self.reader.readuntil(b"\r\n\r\n")).decode())
        except (OSError, EOFError, ValueError, IndexError, TypeError, asyncio.LimitOverrunError):
            pass  # gone, or no request that makes sense
        for stream in self.streams:
            stream.halt()
        linger = struct.pack("ii", next(ends) % 2, 0)
        self.writer.get_extra_info("socket").setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, linger)
        self.writer.close()

    async def answer(self, request):
        method, url = request.split(" ", 2)[:2]
        path, _, track = url.split("/", 3)[3].partition("/")
        self.words = dict(word.partition("=")[::2] for word in path.split(","))
        track = int(track[-1:] or 0) + track.startswith("trackID=")  # what a stream without control URL is called
        chosen = self.streams[track - 1:track] if track else self.streams
        name = method + str(track) if method == "SETUP" else method
        if "end:" + name in self.words:
            raise EOFError
        if "silent:" + name in self.words:
            return
        for stream in self.streams if "media" in self.words else []:
            stream.play()
        if method == "DESCRIBE" and "gather" in self.words:
            gathered.append(self)
            while len(gathered) % int(self.words["gather"]):
                await asyncio.sleep(TICK)
        for stream in chosen if method in ("PAUSE", "TEARDOWN") else []:
            stream.halt()
        refused = "digest" in self.words and "\r\nAuthorization: " not in request
        status = 401 if refused else int(self.words.get(name, 200))
        reply = self.reply(request, name, status, chosen)
        if "half:" + name in self.words:
            self.writer.write(reply[:len(reply) // 2])
            raise EOFError
        if method == "DESCRIBE" and "split" in self.words:
            head = reply.index(b"v=0")
            self.writer.write(reply[:head])
            await asyncio.sleep(0.01)
            reply = reply[head:]
        self.writer.write(reply)
        for stream in chosen if method == "PLAY" and status == 200 else []:
            stream.play()
        if "after:" + name in self.words:
            raise EOFError

    def reply(self, request, name, status, chosen):
        lines = ["RTSP/1.0 %d Status" % status, "CSeq: " + re.search(r"CSeq: (\d+)", request)[1]]
        session = next(ends) if "stranger" in self.words else "5e5510n"
        body = SDP if name == "DESCRIBE" else ""
        if status == 401:
            lines.append('WWW-Authenticate: Digest realm="door", nonce="5ec7e7"')
        if name.startswith("SETUP"):
            lines.append("Transport: " + self.set_up(request, chosen[0]))
        if name in ("PAUSE", "TEARDOWN"):
            lines.append("X-Sent: %d %d" % tuple(stream.sent for stream in self.streams))
        lines.append("Content-Length: %d" % len(body) if body else "Session: %s;timeout=60" % session)
        return ("\r\n".join(lines) + "\r\n\r\n" + body).encode()

    def set_up(self, request, stream):
        asked = re.search(r"client_port=(\d+)", request)
        if "group" in self.words:
            stream.address = ("232.1.1.1", 5000 + 2 * stream.index)
            return "RTP/AVP;multicast;destination=%s;port=%d-5009;ttl=1" % stream.address
        if not asked:
            return "RTP/AVP/TCP;unicast;interleaved=%d-%d" % (2 * stream.index, 2 * stream.index + 1)
        stream.address = ("127.0.0.1", int(asked[1]))
        ports = stream.address[1], stream.address[1] + 1, *(sock.getsockname()[1] for sock in media)
        return "RTP/AVP;unicast;client_port=%d-%d;server_port=%d-%d" % ports


async def main():
    server = await asyncio.start_server(lambda *ends: Connection(*ends).serve(), "127.0.0.1", 0, backlog=1024)
    print(server.sockets[0].getsockname()[1], flush=True)
    await server.serve_forever()


asyncio.run(main())
