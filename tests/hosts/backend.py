"""Application servers for the tests of a plug-in: each says who it is and what it got, and does what the query of the request asks.

  size=N       answer with N bytes instead of the account of the request     answer=counted|chunked|close  how the answer ends
  wait=S       seconds before the answer, gap=S before its body              status=N, session=ID (a cookie that names this server)
  reset=start|headers|body  resets the connection before, in or after the headers; at=NAME: only on that server
"""
import asyncio, base64, collections, hashlib, json, socket, ssl, struct, threading
from urllib.parse import parse_qs, urlsplit

PATTERN = bytes(range(256)) * 256


def pattern(size):
    for start in range(0, size, len(PATTERN)):
        yield PATTERN[:size - start]


class Backend:
    """One server; its methods may be called from any thread."""
    loop = None

    def __init__(self, name, port, host="127.0.0.1", tls=None):
        if not Backend.loop:
            Backend.loop = asyncio.new_event_loop()
            threading.Thread(target=Backend.loop.run_forever, daemon=True).start()
        self.name, self.port, self.host, self.tls = name, port, host, tls
        self.writers, self.server = set(), None
        self.ids = collections.Counter()  # requests by the header X-Id
        self.open = 0                     # requests that are being answered
        self.targets = []                 # of all requests, with their methods
        self.up()

    def call(self, coroutine):
        return asyncio.run_coroutine_threadsafe(coroutine, Backend.loop).result(20)

    def up(self):
        async def start():
            self.server = await asyncio.start_server(self.serve, self.host, self.port, ssl=self.tls, backlog=1024)
        self.call(start())

    def down(self):
        """As when the process is killed."""
        async def stop():
            self.server.close()
            for writer in self.writers:
                writer.transport.abort()
        self.call(stop())

    async def serve(self, reader, writer):
        self.writers.add(writer)
        try:
            while await self.answer(reader, writer):
                pass
        except (asyncio.IncompleteReadError, asyncio.LimitOverrunError, OSError, ValueError):
            pass
        finally:
            self.writers.discard(writer)
            writer.close()

    async def body(self, reader, headers):
        """Digest and length of the request's body."""
        digest, length = hashlib.sha256(), 0
        if "chunked" in headers.get("transfer-encoding", ""):
            while size := int((await reader.readline()).split(b";")[0], 16):
                data = await reader.readexactly(size)
                digest.update(data)
                length += size
                await reader.readline()
            while (await reader.readline()).strip():
                pass
        left = int(headers.get("content-length", 0))
        while left:
            data = await reader.read(min(left, 1 << 16))
            if not data:
                raise asyncio.IncompleteReadError(b"", left)
            digest.update(data)
            length, left = length + len(data), left - len(data)
        return digest.hexdigest(), length

    async def answer(self, reader, writer):
        """One request; FALSE at the end of the connection."""
        head = (await reader.readuntil(b"\r\n\r\n")).decode("latin-1").split("\r\n")
        method, target = head[0].split(" ")[:2]
        lines = [line.partition(": ")[::2] for line in head[1:] if line]
        headers = {name.lower(): value for name, value in lines}
        self.targets.append(f"{method} {target}")
        query = {name: values[0] for name, values in parse_qs(urlsplit(target).query).items()}
        if query.get("at", self.name) != self.name:
            query = {}
        if "x-id" in headers:
            self.ids[headers["x-id"]] += 1
        self.open += 1
        try:
            return await self.respond(reader, writer, method, target, lines, headers, query)
        finally:
            self.open -= 1

    async def respond(self, reader, writer, method, target, lines, headers, query):
        if "wait" in query:
            await asyncio.sleep(float(query["wait"]))
        if "sec-websocket-key" in headers:
            return await self.websocket(reader, writer, headers)
        if "100-continue" in headers.get("expect", "").lower() and "status" not in query:
            writer.write(b"HTTP/1.1 100 Continue\r\n\r\n")
        reset = query.get("reset")
        if reset == "start":
            return self.reset(writer)
        refused = "expect" in headers and "status" in query
        digest, length = ("", 0) if refused else await self.body(reader, headers)
        account = json.dumps({"name": self.name, "method": method, "target": target, "headers": lines, "digest": digest, "length": length})
        size = int(query.get("size", 0))
        body = pattern(size) if size else [account.encode()]
        kind = query.get("answer", "counted")
        length = {"counted": f"Content-Length: {size or len(account)}\r\n", "chunked": "Transfer-Encoding: chunked\r\n", "close": ""}[kind]
        cookie = f"Set-Cookie: JSESSIONID={query['session']}:{self.name}; Path=/\r\n" if "session" in query else ""
        top = f"HTTP/1.1 {query.get('status', 200)} Fine\r\nX-Server: {self.name}\r\n{cookie}{length}".encode()
        writer.write(top)
        if reset == "headers":
            return self.reset(writer)
        writer.write(b"Connection: close\r\n\r\n" if kind == "close" or refused else b"\r\n")
        if "gap" in query:
            await writer.drain()
            await asyncio.sleep(float(query["gap"]))
        for data in body if method != "HEAD" else []:
            writer.write(b"%x\r\n%s\r\n" % (len(data), data) if kind == "chunked" else data)
            await writer.drain()
            if reset == "body":
                return self.reset(writer)
        if kind == "chunked" and method != "HEAD":
            writer.write(b"0\r\n\r\n")
        await writer.drain()
        return kind != "close" and not refused

    def reset(self, writer):
        writer.get_extra_info("socket").setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        writer.transport.abort()
        return False

    async def websocket(self, reader, writer, headers):
        """Echoes short frames until the client closes."""
        key = hashlib.sha1((headers["sec-websocket-key"] + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11").encode()).digest()
        writer.write(b"HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nX-Server: %s\r\n"
                     b"Sec-WebSocket-Accept: %s\r\n\r\n" % (self.name.encode(), base64.b64encode(key)))
        while True:
            first, second = await reader.readexactly(2)
            mask = await reader.readexactly(4)
            data = await reader.readexactly(second & 127)
            writer.write(bytes([first, second & 127]) + bytes(byte ^ mask[i % 4] for i, byte in enumerate(data)))
            if first & 15 == 8:
                await writer.drain()
                return False
