#!/usr/bin/env python3
"""A time stamp authority on the loopback interface for the tests: openssl ts -reply behind http.server.

    tsa_server.py PKI_DIRECTORY

Prints two port numbers, plain and TLS, and serves until its standard input ends. PKI_DIRECTORY holds tsa.key,
tsa.crt, inter.crt, server.key, server.crt and pki.cnf with a section tsa_reply. Both ports are also a proxy that
knows CONNECT. How the authority behaves is chosen by the path of the request:

    /good          a proper reply
    /user          the same, but only for the credentials "jane:pass word"
    /wrong-nonce, /wrong-imprint, /refused     proper replies to another question
    /wrong-type, /no-type, /status500, /redirect, /chunked, /cut, /short-header, /garbage, /huge, /drip, /silent
"""
import base64
import http.server
import os
import socket
import ssl
import subprocess
import sys
import tempfile
import threading
import time

REPLY_TYPE = "application/timestamp-reply"
QUERY_TYPE = "application/timestamp-query"
PKI = sys.argv[1]
turn = threading.Lock()  # openssl counts serial numbers in a file


def make_reply(query):
    with turn, tempfile.NamedTemporaryFile() as file:
        file.write(query)
        file.flush()
        return subprocess.run(
            ["openssl", "ts", "-reply", "-config", "pki.cnf", "-section", "tsa_reply", "-queryfile", file.name,
             "-signer", "tsa.crt", "-inkey", "tsa.key", "-chain", "inter.crt"],
            cwd=PKI, check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout


def with_flipped_bit(query, place):
    changed = bytearray(query)
    changed[place] ^= 1
    return bytes(changed)


def other_nonce(query):
    # The nonce is the last number before the boolean that asks for the certificate.
    assert query.endswith(b"\x01\x01\xff")
    return with_flipped_bit(query, len(query) - 4)


def other_imprint(query):
    return with_flipped_bit(query, query.index(b"\x04\x20") + 2)


class Authority(http.server.BaseHTTPRequestHandler):
    def log_message(self, *args):
        pass

    def answer(self, body, status=200, content_type=REPLY_TYPE, length=None, extra=()):
        self.send_response(status)
        if content_type is not None:
            self.send_header("Content-Type", content_type)
        if length is not False:
            self.send_header("Content-Length", str(len(body) if length is None else length))
        for name, value in extra:
            self.send_header(name, value)
        self.end_headers()
        self.wfile.write(body)

    def do_POST(self):
        query = self.rfile.read(int(self.headers["Content-Length"]))
        headers_are_right = (self.headers["Content-Type"] == QUERY_TYPE and self.headers["Accept"] == REPLY_TYPE
                             and self.headers["User-Agent"] == "QEL" and self.request_version == "HTTP/1.0")
        if not headers_are_right:
            self.answer(b"", 400)
            return
        behaviour = getattr(self, "on_" + self.path.split("?")[0][1:].replace("-", "_"), None)
        if behaviour is None:
            self.answer(b"", 404)
        else:
            behaviour(query)

    def on_good(self, query):
        self.answer(make_reply(query))

    def on_user(self, query):
        wanted = "Basic " + base64.b64encode(b"jane:pass word").decode()
        right = self.headers["Authorization"] == wanted
        self.answer(make_reply(query) if right else b"", 200 if right else 401)

    def on_wrong_nonce(self, query):
        self.answer(make_reply(other_nonce(query)))

    def on_wrong_imprint(self, query):
        self.answer(make_reply(other_imprint(query)))

    def on_refused(self, query):
        # A digest that the authority's configuration does not accept.
        self.answer(make_reply(query.replace(bytes.fromhex("608648016503040201"), bytes.fromhex("608648016503040202"))))

    def on_wrong_type(self, query):
        self.answer(make_reply(query), content_type="text/html; charset=utf-8")

    def on_parameter(self, query):
        self.answer(make_reply(query), content_type="Application/Timestamp-Reply; x=y", length=False)

    def on_no_type(self, query):
        self.answer(make_reply(query), content_type=None)

    def on_status500(self, query):
        self.answer(make_reply(query), 500)

    def on_redirect(self, query):
        self.answer(make_reply(query), 302, extra=[("Location", "/good")])

    def on_chunked(self, query):
        self.answer(make_reply(query), length=False, extra=[("Transfer-Encoding", "chunked")])

    def on_cut(self, query):
        reply = make_reply(query)
        self.answer(reply[:-20], length=len(reply))

    def on_short_header(self, query):
        self.wfile.write(b"HTTP/1.0 200 OK\r\nContent-Type: " + REPLY_TYPE.encode() + b"\r\n")

    def on_garbage(self, query):
        self.wfile.write(b"\x00\x01garbage\x1b[2J\r\n\r\n")

    def on_huge(self, query):
        self.answer(bytes(1024 * 1024), length=False)

    def on_drip(self, query):
        try:
            while True:
                self.wfile.write(b"H")
                time.sleep(0.02)
        except OSError:
            pass

    def on_silent(self, query):
        self.connection.recv(1)

    def do_CONNECT(self):
        host, port = self.path.rsplit(":", 1)
        if port == "1":
            self.send_error(502)
            return
        with socket.create_connection((host, int(port))) as far:
            self.send_response(200)
            self.end_headers()
            back = threading.Thread(target=pump, args=(far, self.connection))
            back.start()
            pump(self.connection, far)
            back.join()


def pump(source, sink):
    try:
        while data := source.recv(65536):
            sink.sendall(data)
        sink.shutdown(socket.SHUT_WR)
    except OSError:
        pass


class Server(http.server.ThreadingHTTPServer):
    def handle_error(self, request, client_address):
        pass  # clients that hang up are the point of some tests


class TlsServer(Server):
    def __init__(self, *args):
        super().__init__(*args)
        self.tls = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        with tempfile.NamedTemporaryFile("w") as chain:
            for name in ("server.crt", "inter.crt"):
                with open(os.path.join(PKI, name)) as certificate:
                    chain.write(certificate.read())
            chain.flush()
            self.tls.load_cert_chain(chain.name, os.path.join(PKI, "server.key"))

    def finish_request(self, request, client_address):
        with self.tls.wrap_socket(request, server_side=True) as session:
            super().finish_request(session, client_address)


def main():
    servers = [kind(("127.0.0.1", 0), Authority) for kind in (Server, TlsServer)]
    for server in servers:
        threading.Thread(target=server.serve_forever, daemon=True).start()
    print(*(server.server_address[1] for server in servers), flush=True)
    sys.stdin.read()
    os._exit(0)


main()
