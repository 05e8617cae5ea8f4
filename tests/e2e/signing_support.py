"""Signed archives for the tests: a world of certificates, a time stamp server, documents that the openssl command signs,
and the means to take an archive and a signature apart and put them together otherwise.
"""
import atexit
import base64
import functools
import hashlib
import os
import re
import shutil
import subprocess
import sys
import tempfile

import archivefile
import harness

SOURCE = os.environ.get("TOLVEN_SOURCE_DIR", os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))
PROGRAMS = os.path.dirname(harness.BINARY)
MANIFEST_NAME = "SIGNATURE.SMF"
MANIFEST_MODE = 0o40600
BEGIN = b"-----BEGIN SIGNATURE-----\n"
END = b"\n-----END SIGNATURE-----"


def tool(*args, cwd=None, stdin=b""):
    """A command that must succeed; returns its standard output."""
    return subprocess.run(args, cwd=cwd, input=stdin, check=True, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE).stdout


def sanitizer():
    """The runtime that the tool, which is no instrumented program, has to load before an instrumented library."""
    if not harness.instrumented():
        return {}
    libraries = tool("ldd", os.path.join(PROGRAMS, "libqelcrypto.so")).decode().split()
    runtime = next((word for word in libraries if "/" in word and "asan" in word), "")
    return {"LD_PRELOAD": runtime, "ASAN_OPTIONS": "detect_leaks=0"}


# --- Certificates and keys.

@functools.cache
def pki(*names):
    """The directory with the certificates and profiles of make_pki.sh, made on the first call; with names, a path in
    it. sec/QELverify.pse trusts the root."""
    if names:
        return os.path.join(pki(), *names)
    directory = tempfile.mkdtemp(prefix="tolven-e2e-pki-")
    atexit.register(shutil.rmtree, directory)
    tool("sh", os.path.join(SOURCE, "tests", "unit", "crypto", "make_pki.sh"), directory)
    return directory


@functools.cache
def pse(name):
    """A PSE with the key of `name`, for signing."""
    made = pki("made-%s.pse" % name)
    parts = (pki(name + ".key"), pki(name + ".crt"), pki("inter.crt"))
    harness.write_file(made, b"".join(map(harness.read_file, parts)))
    return made


# --- Documents.

def body_line(name, data, hash_name="sha256"):
    name = name if isinstance(name, bytes) else name.encode()
    return b"%s %04x %s\n" % (hashlib.new(hash_name, data).hexdigest().encode(), len(name), name)


def body(lines, hash_name="SHA256", signature="PKCS7"):
    """The signed bytes of a document with these body lines."""
    head = "QEL-MANIFEST\nVersion: 1.0\nHash: %s\nSignature: %s\nBody: Digest | Name-Length | Name\n\n"
    return (head % (hash_name, signature)).encode() + b"".join(lines) + b"\n"


def document(signed, signature):
    text = base64.b64encode(signature)
    return signed + BEGIN + b"\n".join(text[i:i + 64] for i in range(0, len(text), 64)) + END


def split_document(text):
    """Signed bytes and signature of a document."""
    start = text.rindex(b"\n\n" + BEGIN) + 2
    return text[:start], base64.b64decode(text[start + len(BEGIN):-len(END)])


def openssl_sign(signed, signer="signer", certificates="inter.crt", digest="sha256", options=("-cades",)):
    """What the openssl command makes of it: DER, detached."""
    return tool("openssl", "cms", "-sign", "-binary", "-outform", "DER", "-md", digest, "-nosmimecap", "-signer",
                signer + ".crt", "-inkey", signer + ".key", "-certfile", certificates, *options, cwd=pki(), stdin=signed)


def signed_document(lines, signer="signer", signature="PKCS7", hash_name="SHA256", **how):
    signed = body(lines, hash_name, signature)
    return document(signed, openssl_sign(signed, signer=signer, **how))


# --- Entries.

def manifest_entry(text, mode=MANIFEST_MODE):
    return archivefile.regular(MANIFEST_NAME, text, mode=mode)


def pack(entry):
    """An entry that the reader gave, as it stood in the archive or as it was changed since."""
    data = b"".join(archivefile.block(kind, payload) for kind, payload in entry.blocks)
    if entry.crc is not None:
        data += entry.crc.to_bytes(4, "little")
    return archivefile.entry(entry.type, entry.name, entry.mode, entry.size, entry.mtime, data, entry.size_high,
                             entry.access)


def put_data(entry, data):
    """Other data, with a size and a checksum that agree with it."""
    blocks = archivefile.lzh_blocks(data)
    new = archivefile.parse(archivefile.archive(archivefile.entry(entry.type, entry.name, entry.mode, len(data),
                                                                  entry.mtime, blocks)))[1][0]
    entry.size, entry.blocks, entry.crc = new.size, new.blocks, new.crc


def manifest_of(path):
    """The text of the manifest, which must be the last entry."""
    last = archivefile.read(path)[1][-1]
    assert (last.type, last.name, last.mode) == (b"RG", MANIFEST_NAME.encode(), MANIFEST_MODE)
    return last.data()


# --- The inside of a signature: as little of DER as it takes.

def der_split(content):
    """The elements that follow each other in `content`: pairs of tag and content."""
    found = []
    while content:
        tag, length, at = content[0], content[1], 2
        if length & 0x80:
            at = 2 + (length & 0x7F)
            length = int.from_bytes(content[2:at], "big")
        found.append((tag, content[at:at + length]))
        content = content[at + length:]
    return found


def der_join(elements):
    out = b""
    for tag, content in elements:
        length = len(content)
        if length < 0x80:
            prefix = bytes([length])
        else:
            digits = length.to_bytes((length.bit_length() + 7) // 8, "big")
            prefix = bytes([0x80 | len(digits)]) + digits
        out += bytes([tag]) + prefix + content
    return out


def edit_der(content, path, change):
    """`content` with the list of elements at `path` (indices from the outside in) changed by `change`."""
    elements = der_split(content)
    if not path:
        return der_join(change(elements))
    tag, inner = elements[path[0]]
    elements[path[0]] = (tag, edit_der(inner, path[1:], change))
    return der_join(elements)


# ContentInfo, [0], SignedData; its last element is the set of signer infos.
SIGNED_DATA = (0, 1, 0)
SIGNER_INFO = (*SIGNED_DATA, -1, 0)
UNSIGNED_ATTRIBUTES = 0xA1


def unsigned_attributes(signature):
    found = []
    edit_der(signature, SIGNER_INFO, lambda elements: found.extend(elements) or elements)
    return [element for element in found if element[0] == UNSIGNED_ATTRIBUTES]


def with_unsigned_attributes(signature, attributes):
    """The signature with these in place of its own."""
    return edit_der(signature, SIGNER_INFO, lambda elements: [
        element for element in elements if element[0] != UNSIGNED_ATTRIBUTES] + attributes)


# --- Time stamps.

@functools.cache
def tsa_ports():
    """Ports of the time stamp server, plain and TLS; it is started on the first call."""
    script = os.path.join(SOURCE, "tests", "support", "tsa_server.py")
    server = subprocess.Popen([sys.executable, "-B", script, pki()], stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def stop():
        server.stdin.close()
        server.wait()
        server.stdout.close()

    atexit.register(stop)
    return tuple(int(port) for port in server.stdout.readline().split())


def tsa(path="/good"):
    return "http://127.0.0.1:%d%s" % (tsa_ports()[0], path)


# --- Tests.

class SigningTest(harness.TolvenTest):
    """Runs trust the root of the test certificates unless a test says otherwise."""

    def setUp(self):
        super().setUp()
        self.env = {"SECUDIR": pki("sec"), "HOME": self.dir, "QELMANIFEST_TRACELEVEL": "0"}

    def run_tolven(self, *args, env=None, **how):
        return super().run_tolven(*args, env={**self.env, **(env or {})}, **how)

    def sign_new(self, archive, *names, options=("-key", pki("signer.pse"))):
        self.expect(["-cSf", archive, *options, *names], [])
        return self.path(archive)

    def refused(self, args, code, *texts, **how):
        """A run that ends with `code` and says all of `texts`."""
        run = self.run_tolven(*(args.split() if isinstance(args, str) else args), **how)
        self.assertEqual(run.code, code, (args, run))
        for text in texts:
            self.assertIn(text, "\n".join(run.lines), args)
        return run

    def details(self, run):
        """The lines about the signer that -v gives: label -> text."""
        return dict(re.findall(r"^TOLVEN: (\w+ \w+) *>(.*?)<$", "\n".join(run.lines), re.DOTALL | re.MULTILINE))


DATA = {"a": b"first", "b/c": b"second " * 20000, "empty": b""}
LINES = [body_line(name, data) for name, data in DATA.items()]


class TrustTest(SigningTest):
    def setUp(self):
        super().setUp()
        harness.build_tree(self.dir, DATA)

    def made(self, name, text):
        """An archive of the test data with this manifest, by the tests' own writer."""
        files = [archivefile.regular(*item) for item in DATA.items()]
        return self.write(name, archivefile.archive(*files, manifest_entry(text)))

    def trust(self, **profiles):
        """Runs trust what is given as QELverify or QELvalidation: names in the world of certificates."""
        self.env["SECUDIR"] = self.fresh("sec")
        for name, source in profiles.items():
            shutil.copy(pki(source), self.path("sec", name + ".pse"))

    def accepted(self, *args):
        """List, test, extract: all must succeed. Returns the details that -v prints."""
        self.assertEqual(self.run_tolven("-tVf", *args).code, 0)
        self.fresh("out")
        run = self.run_tolven("-xVf", *args, "-R", "out")
        self.assertEqual((run.code, harness.contents(self.path("out"))), (0, DATA), run)
        run = self.run_tolven("-dVvf", *args)
        self.assertEqual((run.code, run.lines[-1]), (0, "TOLVEN: 3 file(s) tested"), run)
        return self.details(run)

    def rejected(self, args, code, *texts):
        """List, test, extract: all must fail before anything is written."""
        for command in ("-tVf", "-dVf"):
            self.refused([command, *args], code, *texts)
        self.refused(["-xVf", *args, "-R", self.fresh("out")], code, *texts)
        self.assertEqual(os.listdir(self.path("out")), [])
