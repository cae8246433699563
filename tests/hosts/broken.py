"""Broken and hostile requests: each gets a sane answer, none ends a process, and nothing that a client may not say reaches a back end."""
import random, re

from shop import *

backends = servers()
OK, BAD, LOST = {200}, {400}, {404}


def request(line="GET /shop/x HTTP/1.1", *headers, host=f"Host: {HOST}", body=""):
    return "\r\n".join([line, *([host] if host else []), *headers, "Connection: close", "", body])


def answers(text):
    """Statuses of what came back until the end, and all of it."""
    connection, data = raw(""), b""
    try:
        connection.sendall(text if isinstance(text, bytes) else text.encode("latin-1"))
        connection.shutdown(socket.SHUT_WR)
    except OSError:
        pass  # refused before all of it was sent
    try:
        while more := connection.recv(1 << 16):
            data += more
    except ConnectionError:
        pass
    return [int(status) for status in re.findall(rb"^HTTP/1\.[01] (\d{3}) ", data, re.M)], data


def line(target, method="GET"):
    return request(f"{method} {target} HTTP/1.1")


CASES = [  # what is sent, the status it gets
    (request(), OK), (request(host=""), BAD), (request(host="Host:"), BAD | LOST), (request(host="Host: a b"), BAD),
    (request(host="Host: shop.example:99999"), BAD), (request(host="Host: [::1"), BAD), (request(host=f"Host: {HOST}\r\nHost: {HOST}"), BAD),
    (request(host="Host: x@shop.example"), BAD), (request(host="Host: SHOP.EXAMPLE"), OK), (request(host="Host: " + 8000 * "a"), BAD | LOST),
    (request(host="Host: shop.example/../.."), BAD), (request(host="Host: \xff\xfe"), BAD | LOST),
    # cookies
    (request(headers := "GET /shop/x HTTP/1.1", "Cookie: JSESSIONID=0" + 3900 * ":x"), OK), (request(headers, "Cookie: a=" + 9000 * "x"), BAD),
    (request(headers, "Cookie: JSESSIONID"), OK), (request(headers, "Cookie: JSESSIONID=::::::w1"), OK), (request(headers, "Cookie: =;;;=\xff;"), OK),
    (request(headers, *(f"Cookie: JSESSIONID=0:w{n}" for n in range(60))), OK),
    # paths
    (line("/shop/a%2Fb"), LOST), (line("/shop/../shop/x"), OK), (line("/shop/../../etc/passwd"), BAD), (line("/shop/%2e%2e/nowhere"), LOST),
    (line("/shop/..;/..;/x"), OK), (line("/shop/%00"), BAD | LOST), (line("/shop/%c0%ae%c0%ae/"), OK), (line("/shop/%zz"), BAD),
    (line("/shop/\xff\xfe"), OK | BAD), (line("/shop/a\x01b"), BAD), (line("/shop/a\x7fb"), BAD), (line("/shop/" + 7000 * "a"), OK),
    (line("/shop/" + 9000 * "a"), {414}), (line("/shop//x///y"), OK), (line("/shop/x;jsessionid="), OK), (line("/shop/x;jsessionid=" + 999 * ":"), OK),
    (line("/shop/x?" + "%80\xff\xfe"), OK | BAD | {403}), (line("/shop/x?a=\x01"), BAD), (line("/shop/x?" + 999 * "&=?"), OK), (line("shop/x"), BAD),
    (line("*"), BAD), (line("/shop/x y"), BAD), (line("/shop/%0d%0aX-Evil:%201"), OK | BAD | LOST),
    # other forms of the first line
    (line("http://shop.example/shop/x"), OK), (line("http://other.example/shop/x"), LOST), (line("ftp://shop.example/shop/x"), OK | BAD | LOST | {403}),
    (line("http://shop.example@other.example/shop/x"), BAD | LOST), (line("http:///shop/x"), BAD | LOST), (request("GET /shop/x HTTP/9.9"), OK | {505}),
    (request("GET /shop/x HTTP/1.0", host=""), OK | LOST), (request("GET  /shop/x HTTP/1.1"), BAD), (request("G\x01T /shop/x HTTP/1.1"), BAD | {501}),
    (request("NONSENSE /shop/x HTTP/1.1"), OK | {405, 501}), (line("shop.example:443", "CONNECT"), {400, 403, 404, 405}), (line("*", "OPTIONS"), OK),
    (line("/shop/x", "TRACE"), {405}), (request("OPTIONS /shop/last HTTP/1.1", "Max-Forwards: 0"), OK),
    (request("GET /shop/last HTTP/1.1", "Max-Forwards: 0"), BAD), (request("GET /shop/last HTTP/1.1", "Max-Forwards: x"), BAD),
    # headers
    (request(headers, "X: a\x01b"), BAD), (request(headers, "X: \xff\xfe"), OK), (request(headers, "X\xff: a"), BAD), (request(headers, "X : a"), BAD),
    (request(headers, "no colon"), BAD), (request(headers, ": empty"), BAD), (request(headers, "X: a\x00b"), BAD), (request(headers, "X: a\r\n b"), OK | BAD),
    (request(headers, *(f"X-{n}: a" for n in range(90))), OK), (request(headers, *(f"X-{n}: a" for n in range(20000))), BAD),
    (request(headers, "Expect: nonsense"), {417}), (request(headers, "Upgrade: websocket"), OK), (request(headers, "Upgrade: h2c, \x01"), BAD),
]
NEXT = f"GET /shop/smuggled HTTP/1.1\r\nHost: {HOST}\r\n\r\n"
POST = "POST /shop/x HTTP/1.1"
SMUGGLED = [  # each hides a request in what may be a body
    (request(POST, "Content-Length: 5", "Transfer-Encoding: chunked", body="0\r\n\r\n" + NEXT), OK | BAD),
    (request(POST, f"Content-Length: {len(NEXT)}", "Content-Length: 0", body=NEXT), BAD), (request(POST, "Content-Length: 0, 5", body=NEXT), BAD),
    (request(POST, "Content-Length: +5", body=NEXT), BAD), (request(POST, "Content-Length: -1", body=NEXT), BAD),
    (request(POST, "Content-Length: 99999999999999999999", body=NEXT), BAD | {413}), (request(POST, "Content-Length: 0x5", body=NEXT), BAD),
    (request(POST, "Transfer-Encoding : chunked", body="0\r\n\r\n" + NEXT), BAD), (request(POST, "Transfer-Encoding: xchunked", body=NEXT), BAD | {501}),
    (request(POST, "Transfer-Encoding: chunked, identity", body="0\r\n\r\n" + NEXT), BAD | {501}),
    (request(POST, "Transfer-Encoding: chunked", "Transfer-Encoding: x", body="0\r\n\r\n" + NEXT), BAD | {501}),
    (request(POST, "Transfer-Encoding: chunked", body="fffffffffffffffff\r\n" + NEXT), BAD | {413}),
    (request(POST, "Transfer-Encoding: chunked", body="-1\r\n" + NEXT), BAD), (request(POST, "Transfer-Encoding: chunked", body="5;a\nhello\r\n0\r\n\r\n"), OK | BAD),
    (request(POST, "Transfer-Encoding:\x0bchunked", body="0\r\n\r\n" + NEXT), BAD | {501}), (request(POST, "Content-Length: 0\r\n Content-Length: 9"), BAD | OK),
    (request(headers, f"Content-Length: {len(NEXT)}", body=NEXT), OK), (request(POST, "Content-Length: 9", body="short"), BAD),
    (request(POST, "Upgrade: websocket", f"Content-Length: {len(NEXT)}", body=NEXT), OK),
]


def broken_requests_are_refused():
    surprises = []
    for text, expected in CASES + SMUGGLED:
        statuses, _ = answers(text)
        if len(statuses) != 1 or statuses[0] not in expected:
            surprises.append((text[:120], statuses))
    check(not surprises, *surprises)
    answers("GET /shop/x\r\n")  # HTTP/0.9
    for text in ("", "\r\n\r\n\r\n", "\x16\x03\x01\x02\x00\x01\x00", "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n", 100000 * "A", "GET / HTTP/1.1\r\n"):
        answers(text)
    seen = [target for backend in backends.values() for target in backend.targets]
    for forbidden in ("smuggled", "TRACE", "last", "passwd"):
        check(not [target for target in seen if forbidden in target], forbidden, "reached a back end")


def forged_headers_are_dropped():
    names = [f"{first}{middle}{rest}" for first in "$_-.~!*+#%&'^`|" for middle in ("ZV", "zv", "zV") for rest in ("RU", "fo", "_HAPRT_WLMVERSION", "PT", "")]
    for start in range(0, len(names), 40):
        got = ask(fields={name: "forged" for name in names[start:start + 40]}).account["headers"]
        check(not [name for name, value in got if "forged" in value], "forged headers reach the back end:", got)
    for named in ("$ZVRA, $ZVIS", "close, $zvra , _zv_haprt_wlmversion;x,$ZVIS", "$ZVIS,$ZVRA,,"):
        got = {name.upper(): value for name, value in ask(Connection=named).account["headers"]}
        check(got.get("$ZVRA") == "127.0.0.1" and got.get("$ZVIS") == "FALSE", "Connection:", named, "leaves", got)
    _, data = answers(request(POST, "Transfer-Encoding: chunked", "Trailer: _ZVRU", body="1\r\na\r\n0\r\n_ZVRU: forged\r\n\r\n"))
    check(b"200" in data and b"forged" not in data.split(b"\r\n\r\n", 1)[1], "a trailer reaches the back end:", data)
    forwards = {name: value for name, value in ask(Max_Forwards="5").account["headers"]}
    check(forwards["Max-Forwards"] == "4", forwards)


def of(**members):
    return json.dumps(members).encode()


GOOD = of(host=HOST, path="/shop/cart")
QUESTIONS = [  # status, what is posted to the status handler to be explained, and how
    *((400, body, {}) for body in (
        b"", b"{", b"[]", b"7", b"null", b"[" * 60000, b'{"headers":' * 5000, b'{"path": "/\xff"}', b'{"path": "/\\u0000"}',
        b'{"path": "/a", "path": "/b"}', of(pth="/"), of(path=None), of(path="*"), of(path="http://shop.example/"), of(path="/%"),
        of(path="/%00"), of(path="/a b"), of(path="/a\r\nX: y"), of(path="/?a"), of(query="a b"), of(path="/" + "a" * 9000),
        of(host="shop example"), of(host="a/b"), of(host="x" * 9000), of(host="\u00e4"), of(port=65536), of(port="80"), of(method="GET /"),
        of(method=""), of(clientIp=None), of(clientIp="::1%lo;"), of(groups=["a"]), of(headers={"X Y": "z"}), of(headers={"X": "a\nb"}),
        of(headers={"": "a"}), of(headers={"X": [["a"]]}), of(headers={"X": ["a"] * 200}), of(cookies={"a": "b\r\nX: y"}), of(cookies=[]))),
    (400, GOOD, {"length": len(GOOD) + 10}), (413, GOOD + b" " * 70000, {}), (413, GOOD + b" " * 70000, {"chunked": True}),
    (415, GOOD, {"kind": "text/plain"}), (415, GOOD, {"kind": "application/jsonp"}), (200, GOOD + b" " * 60000, {}), (200, GOOD, {"chunked": True}),
    (200, of(path="/a/../shop//%63art", host="SHOP.example.", clientIp="::1", method="PROPFIND", port=-1, protocol=None), {}),
    (200, of(path="/shop/\u00e4", host=None, userName="u", authType="Basic", localAddress="x", sslSessionId="s"), {}),
]


def whatever_is_asked_is_answered():
    def post(body, length=None, kind="application/json", chunked=False):
        framing = "Transfer-Encoding: chunked" if chunked else f"Content-Length: {length or len(body)}"
        head = request("POST /tav-status?explain HTTP/1.1", f"Content-Type: {kind}", framing).encode()
        return answers(head + (b"%x\r\n%s\r\n0\r\n\r\n" % (len(body), body) if chunked else body))
    for expected, body, how in QUESTIONS:
        statuses, data = post(body, **how)
        answer = data.partition(b"\r\n\r\n")[2]
        member = "action" if expected == 200 else "error"
        check(statuses == [expected] and member in json.loads(answer), body[:200], how, "gave", statuses, answer[:200])


def random_faults_end_no_process():
    random.seed(4)
    whole = [text for text, _ in CASES + SMUGGLED if len(text) < 4000]
    for _ in range(1500):
        text = bytearray(random.choice(whole).encode("latin-1"))
        for _ in range(random.randrange(1, 4)):
            place = random.randrange(len(text))
            random.choice((lambda: text.__setitem__(place, random.randrange(256)), lambda: text.__delitem__(slice(place, place + random.randrange(9))),
                           lambda: text.insert(place, random.choice(b"\0\r\n :;%/?$_")), lambda: text.extend(text[place:])))()
            if not text:
                break
        statuses, data = answers(bytes(text))
        check(all(status < 600 for status in statuses), bytes(text), "gave", data[:200])
    with open(f"{work}/error.log") as log:
        check("TAV0502W" not in log.read(), "clients bring the library to avoid a server")


eventually(lambda: ask().status == 200, "an answer")
before = set(children())
main(broken_requests_are_refused, forged_headers_are_dropped, whatever_is_asked_is_answered, random_faults_end_no_process)
check(set(children()) == before, "processes ended:", before - set(children()))
