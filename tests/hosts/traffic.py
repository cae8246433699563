"""Real traffic through httpd: sessions, failures, a rollout, large bodies, upgraded connections."""
import asyncio, hashlib, os, random, ssl, struct, threading
from http.client import IncompleteRead

from backend import Backend, pattern
from shop import *

backends = servers()
MEGABYTES = 100


def sessions_stick():
    for name in ("w1", "w2"):
        for path, session in (("/shop/x", name), (f"/shop/x;jsessionid=0000abc:{name}", None), (f"/shop/x;jsessionid=0000abc:{name}?size=9", None)):
            for _ in range(4):
                check(ask(path, session=session).server == name, path, "does not stick to", name)
    created = ask("/shop/x?session=0000new")
    cookie = created.headers.getheader("Set-Cookie").split(";")[0]
    check(all(ask(Cookie=cookie).server == created.server for _ in range(8)), "a new session moves")


async def send_sessions(ids):
    """Requests of sessions on one connection; those that went to another server."""
    moved, connection = [], None
    for number in ids:
        if not connection:
            connection = await asyncio.open_connection("127.0.0.1", front)
        reader, writer = connection
        server = f"w{1 + number % 2}"
        writer.write(f"GET /shop/s?size=2 HTTP/1.1\r\nHost: {HOST}\r\nCookie: a=b; JSESSIONID={number:05}:{server}\r\n\r\n".encode())
        head = await reader.readuntil(b"\r\n\r\n")
        await reader.readexactly(2)
        if b"X-Server: " + server.encode() not in head:
            moved.append((number, head))
        if b"Connection: close" in head:
            writer.close()
            connection = None
    return moved


def ten_thousand_sessions_stay():
    stop = threading.Event()

    def deltas():
        for weight in range(1, 10000):
            change({"server/pay1": {"weight": weight % 9 + 1}, "vHost/console": {"port": str(9000 + weight)}})
            if stop.wait(0.1):
                return
    thread = threading.Thread(target=deltas)
    thread.start()

    async def all_sessions():
        return await asyncio.gather(*(send_sessions(range(start, 10000, 8)) for start in range(8)))
    try:
        moved = sum(asyncio.run(all_sessions()), [])
    finally:
        stop.set()
        thread.join()
    check(not moved, len(moved), "sessions moved:", moved[:1])


def drained_server_keeps_its_sessions():
    change({"server/web1": {"server.maintenancemode": "affinity"}})
    eventually(lambda: always("w2"), "no new session on a server that is drained")
    check(always("w2", 100), "a new session on a drained server")
    check(always("w1", 50, session="w1"), "a drained server loses a session")
    change({"server/web1": {"server.maintenancemode": "false"}})
    eventually(lambda: ask().server == "w1", "new sessions on the server that is back")


def killed_server_fails_nothing_repeatable():
    stop, failed, refused, posted = threading.Event(), [], [], []

    def load(number):
        random.seed(number)
        connection = connect()
        while not stop.is_set():
            method, session = random.choice(("GET", "GET", "POST")), random.choice((None, "w1", "w2"))
            request = f"{number}-{random.random()}"
            try:
                status = ask("/shop/x?size=300", method, b"x" * 100 if method == "POST" else None, session, connection, X_Id=request).status
            except Exception as fault:  # a connection closed without an answer, too
                connection.close()
                status = repr(fault)
            if method == "POST":
                posted.append(request)
                refused.append(status)
            elif status != 200:
                failed.append(status)
    threads = [threading.Thread(target=load, args=(number,)) for number in range(6)]
    for thread in threads:
        thread.start()
    for _ in range(4):
        time.sleep(0.5)
        backends["w1"].down()
        time.sleep(0.5)
        backends["w1"].up()
    eventually(lambda: len(posted) > 100, "a load with posts")
    stop.set()
    for thread in threads:
        thread.join()
    check(not failed, "of a load with", len(posted), "posts these failed:", failed[:5])
    check(set(refused) <= {200, 502, 503}, "posts ended with", set(refused))
    twice = [request for request in posted if sum(backend.ids[request] for backend in backends.values()) > 1]
    check(not twice, "requests sent twice:", twice)
    eventually(lambda: always("w1", session="w1"), "sessions of the server that is back")


def failed_answer_comes_from_another_server():
    change({"server/web1": {"ioTimeout": 1}})
    eventually(lambda: ask("/shop/x?wait=3", "POST", b"x", "w1").status == 504, "a time-out that came with a delta")
    for method, fault, expected in (
            ("GET", "wait=3", 200), ("POST", "wait=3", 504), ("GET", "reset=start", 200), ("HEAD", "reset=start", 200),
            ("PUT", "reset=start", 405), ("GET", "reset=headers", 200), ("POST", "reset=start", 502), ("POST", "reset=headers", 502)):
        if (method, fault) == ("GET", "reset=start"):  # from here on a slow answer is none that failed
            change({"server/web1": {"ioTimeout": 60}})
            eventually(lambda: ask("/shop/x?wait=1.5", "POST", b"x", "w1").status == 200, "the time-out before")
        request = f"{method} {fault}"
        answer = ask(f"/shop/x?at=w1&{fault}", method, b"x" if method in ("POST", "PUT") else None, "w1", X_Id=request)
        check(answer.status == expected, request, "gave", answer.status)
        check(expected != 200 or answer.server == "w2", request, "came from", answer.server)
        first, second = (backends[name].ids[request] for name in ("w1", "w2"))  # a kept connection's end is tried once more on a new one
        check((first in (1, 2), second) == (True, 1) if expected == 200 else (first, second) == (expected != 405, 0), request, "sent", first, second)
    for path in ("/shop/x;jsessionid=0000abc:w1", "/shop/x/JSESSIONID=0000abc:w1", "/shop/x/jsessionid=0000abc:w1"):
        answer = ask(f"{path}?at=w1&reset=start", X_Id=path)
        tries = sum(b.ids[path] for b in backends.values())
        check((answer.status, answer.server) == (200, "w2") and tries <= 3, path, "gave", answer.status, "from", answer.server, "after", tries)
    try:
        ask("/shop/x?at=w1&reset=body&size=10000000", session="w1")
        raise Failed("a torn answer looks whole")
    except IncompleteRead:
        pass


def answer_of_the_application_is_no_failure():
    for path, status in (("/shop/x", 503), ("/shop/x", 500), ("/shop/x", 404), ("/shop/own", 503), ("/shop/own", 404)):
        request = f"status {path} {status}"
        answer = ask(f"{path}?status={status}", session="w1", X_Id=request)
        check(answer.status == status and sum(b.ids[request] for b in backends.values()) == 1, request, "gave", answer.status)


def rollout_waits():
    finished, stop = [], threading.Event()
    change({"cell/main": {"cp.MaxSecondsToWaitDuringAtomicRollout": "60"}})

    def load():
        while not stop.is_set():
            answer = ask()
            finished.append((answer.status, answer.server))
    threads = [threading.Thread(target=load) for _ in range(6)]
    for thread in threads:
        thread.start()
    change({"cluster/storefront": {"appEditionRolloutState": "BEGIN"}})
    change({"web1/serverApplication/shop-edition1.0": {"state": "QUIESCING"}, "web2/serverApplication/shop-edition1.0": {"state": "QUIESCING"}})

    def waiting():
        before = len(finished)
        time.sleep(1.5)
        return len(finished) == before and not any(backend.open for backend in backends.values())
    eventually(waiting, "requests that wait")
    first = len(finished)
    change({"shop_Default_HTTP_WC/rule/default": {"action": "permit:shop-edition2.0"}, "cluster/storefront": {"appEditionRolloutState": "END"}})
    eventually(lambda: len(finished) >= first + 50, "the new edition")
    stop.set()
    for thread in threads:
        thread.join()
    check({status for status, _ in finished} == {200}, "a rollout fails requests", [f for f in finished if f[0] != 200][:3])
    check({server for _, server in finished[first:]} == {"w3"}, "an old edition answers")
    change({"web1/serverApplication/shop-edition1.0": {"state": "STARTED"}, "web2/serverApplication/shop-edition1.0": {"state": "STARTED"},
           "shop_Default_HTTP_WC/rule/default": {"action": "permit:shop-edition1.0"}, "cell/main": {"cp.MaxSecondsToWaitDuringAtomicRollout": "1"}})
    eventually(lambda: all(ask().server in ("w1", "w2") for _ in range(20)), "the old edition again")


def bodies_pass():
    size = MEGABYTES << 20
    whole = hashlib.sha256(b"".join(pattern(size))).hexdigest()
    before = max(children().values())
    for length in ({"Content-Length": str(size)}, {"Transfer-Encoding": "chunked"}):
        connection = connect(60)
        connection.request("POST", "/shop/x", pattern(size), {"Host": HOST, **length}, encode_chunked="Transfer-Encoding" in length)
        account = json.loads(connection.getresponse().read())
        check((account["digest"], account["length"]) == (whole, size), "an upload arrives as", account)
    for kind in ("counted", "chunked", "close"):
        connection = connect(60)
        connection.request("GET", f"/shop/x?size={size}&answer={kind}", headers={"Host": HOST})
        response, digest = connection.getresponse(), hashlib.sha256()
        while data := response.read(1 << 16):
            digest.update(data)
        check(digest.hexdigest() == whole, "a download differs:", kind)
        head = ask(f"/shop/x?size=12345&answer={kind}", "HEAD")
        check(head.status == 200 and head.headers.getheader("Content-Length") in (None, "12345"), "HEAD", kind)
    grown = max(children().values()) - before
    check(grown < 30 << 10, "a child grew by", grown, "KiB with large bodies")


def continue_is_asked_for():
    text = f"POST /shop/x%s HTTP/1.1\r\nHost: {HOST}\r\nExpect: 100-continue\r\nContent-Length: 5\r\nCookie: JSESSIONID=1:w1\r\n\r\n"
    connection = raw(text % "")
    check(read_head(connection)[0] == 100, "no 100 before the body")
    connection.sendall(b"hello")
    status, head = read_head(connection)
    check(status == 200, head)
    check(json.loads(connection.recv(9999))["length"] == 5, "the body did not follow")
    status, head = read_head(raw(text % "?status=403"))
    check(status == 403, "a refusal before the body:", head)
    asked = lambda: "Expect" in dict(ask("/shop/x", "POST", b"x", "w1").account["headers"])
    check(not asked(), "a server is asked whether it wants the body")
    change({"server/web1": {"waitForContinue": True}})
    eventually(asked, "a server that is asked whether it wants the body")
    check(ask("/shop/x?status=403", "POST", 1000000 * b"x", "w1").status == 403, "a refusal of a body")
    change({"server/web1": {"waitForContinue": False}})


def connections_of_clients_end():
    def requests(path):
        connection = connect()
        for seen in range(1, 200):
            if ask(path, connection=connection).headers.getheader("Connection") == "close":
                return seen
    check(requests("/shop/x") == requests("/nowhere"), "MaxKeepAliveRequests lets", requests("/shop/x"), "through")


def disconnects_leave_no_load():
    change({"server/web1": {"maxConnections": 3}})
    cookie = "Cookie: JSESSIONID=1:w1\r\n"

    def disconnect(text, read=0):
        connection = raw(text)
        while read > 0:
            read -= len(connection.recv(read))
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        connection.close()

    def idle():
        return not any(backend.open for backend in backends.values())
    for _ in range(12):
        for text, read in ((f"POST /shop/x HTTP/1.1\r\nHost: {HOST}\r\n{cookie}Content-Length: 1000000\r\n\r\n" + 50000 * "x", 0),
                           (f"POST /shop/x HTTP/1.1\r\nHost: {HOST}\r\n{cookie}Transfer-Encoding: chunked\r\n\r\n9\r\nabc", 0),
                           (f"GET /shop/x?size=50000000 HTTP/1.1\r\nHost: {HOST}\r\n{cookie}\r\n", 10000),
                           (f"GET /shop/x?wait=0.2 HTTP/1.1\r\nHost: {HOST}\r\n{cookie}\r\n", 0)):
            disconnect(text, read)
            eventually(idle, "an end of a request whose client is gone")
    eventually(lambda: always("w1", session="w1"), "a server without load after its clients went")
    change({"server/web1": {"maxConnections": 1000}})


def frame(text, code=1):
    mask = os.urandom(4)
    return bytes([0x80 | code, 0x80 | len(text)]) + mask + bytes(byte ^ mask[i % 4] for i, byte in enumerate(text))


def upgrade(path="/shop/ws", server="w1"):
    return raw(f"GET {path} HTTP/1.1\r\nHost: {HOST}\r\nConnection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
               f"Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nCookie: JSESSIONID=1:{server}\r\n\r\n")


def upgraded_connections_pass():
    change({"server/web1": {"wsIdleTimeout": 4, "wsIoTimeout": 1, "maxConnections": 3}})
    eventually(lambda: "X-Server: w2" in read_head(upgrade("/shop/ws?wait=3&at=w1"))[1], "an upgrade that is not answered in time elsewhere")
    change({"server/web1": {"wsIoTimeout": 30}})
    eventually(lambda: "X-Server: w1" in read_head(upgrade("/shop/ws?wait=1.5"))[1], "the time-out before")
    connections = []
    for _ in range(4):  # more than the server takes at a time: an upgraded one is answered
        connections.append(upgrade())
        status, head = read_head(connections[-1])
        check(status == 101 and "s3pPLMBiTxaQ9kYGzzhZRbK+xOo=" in head and "X-Server: w1" in head, head)
    for _ in range(5):  # together longer than the idle time
        for connection in connections:
            connection.sendall(frame(b"hello"))
            check(connection.recv(7) == b"\x81\x05hello", "no echo")
        time.sleep(0.9)
    check(connections[0].recv(9) == b"", "an idle connection is kept")
    change({"server/web1": {"wsIdleTimeout": 900, "maxConnections": 1000}})


def tls_and_ipv6():
    tls = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    tls.load_cert_chain(f"{work}/back.pem")
    first, second = Backend("p1", ports[3], tls=tls), None
    try:
        second = Backend("p2", ports[4], "::1", tls)
    except OSError:
        second = Backend("p2", ports[4], tls=tls)
    change({"pay1/transport/https": {"host": "127.0.0.1", "port": ports[3]}, "pay2/transport/https": {"host": second.host, "port": ports[4]}})
    path, seen = "/shop/checkout/pay", set()

    def both():
        seen.add(ask(path).server)
        return seen >= {"p1", "p2"}
    eventually(both, "answers over TLS")

    async def hang_up(reader, writer):
        return False
    first.down()
    first.tls, first.answer = None, hang_up  # a handshake fails: nothing of a request went out
    first.up()
    for number in range(12):
        answer = ask(path, "POST", b"x", X_Id=f"tls {number}")
        check(answer.status == 200 and answer.server == "p2", "a failed handshake gives", answer.status)


eventually(lambda: ask().status == 200, "an answer")
main(sessions_stick, ten_thousand_sessions_stay, drained_server_keeps_its_sessions, killed_server_fails_nothing_repeatable,
     failed_answer_comes_from_another_server, answer_of_the_application_is_no_failure, rollout_waits, bodies_pass, continue_is_asked_for,
     connections_of_clients_end, disconnects_leave_no_load, upgraded_connections_pass, tls_and_ipv6)
