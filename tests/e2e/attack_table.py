"""What somebody may do to a signed archive on the way: one row an attack. An attack is given an archive of ENTRIES that
was taken apart and changes it.
"""
import archivefile
import harness
import signing_support as support
from archivefile import directory, entry, link, regular
from signing_support import body_line

EVIL = b"what nobody signed"
BIG = b"".join(b"line %d\n" % number for number in range(20000))
# As they stand in the archive; the last of a name is what an extraction leaves.
ENTRIES = [("a", b"first"), ("d", None), ("d/b", BIG), ("dup", b"one"), ("empty", b""), ("z", b"last"), ("dup", b"two")]
FILES = {name: data for name, data in ENTRIES if data is not None}
LINES = [body_line(name, data) for name, data in ENTRIES if data is not None]
ALL = frozenset(FILES)


class Scene:
    """A signed archive, taken apart. An attack changes `entries`, or returns an archive of its own. `other` is a manifest
    with a time stamp, from another archive."""

    def __init__(self, content, other=b""):
        self.entries = archivefile.parse(content)[1]
        self.more = b""  # behind the last entry
        self.other = other

    def find(self, name, number=0):
        return [entry for entry in self.entries if entry.name == name.encode()][number]

    def place(self, name, number=0):
        return self.entries.index(self.find(name, number))

    @property
    def manifest(self):
        return self.entries[-1]

    def document(self):
        return support.split_document(self.manifest.data())

    def put_document(self, text):
        support.put_data(self.manifest, text)

    def replace(self, old, new):
        """In the text of the manifest, once."""
        text = self.manifest.data()
        assert text.count(old) >= 1, (old, text)
        self.put_document(text.replace(old, new, 1))

    def packed(self):
        items = [item if isinstance(item, bytes) else support.pack(item) for item in self.entries]
        return archivefile.archive(*items) + self.more


class Attack:
    """`left`: names of the files an extraction may leave; None when not even the first entry may be looked at."""

    def __init__(self, name, change, code, text="", left=None, options=(), stamped=False):
        self.name, self.change, self.code, self.text = name, change, code, text
        self.left, self.options, self.stamped = left, options, stamped


def without(*names):
    return ALL - set(names)


# --- The files.

def other_data(scene):
    support.put_data(scene.find("a"), EVIL)


def one_bit_of_many(scene):
    changed = bytearray(BIG)
    changed[70000] ^= 1
    support.put_data(scene.find("d/b"), bytes(changed))


def other_data_with_old_checksum(scene):
    old = scene.find("a").crc
    support.put_data(scene.find("a"), EVIL)
    scene.find("a").crc = old


def size_of_zero(scene):
    scene.find("a").size = 0


def data_for_an_empty_file(scene):
    support.put_data(scene.find("empty"), EVIL)


def block_behind(scene):
    """Another end block: the data ends with the first one."""
    place = scene.place("a")
    scene.entries[place] = support.pack(scene.entries[place]) + archivefile.raw_blocks(EVIL)


def swap_equal_names(scene):
    one, two = scene.place("dup"), scene.place("dup", 1)
    scene.entries[one], scene.entries[two] = scene.entries[two], scene.entries[one]


def remove(name, number=0):
    def change(scene):
        del scene.entries[scene.place(name, number)]
    return change


def insert(item, at=0):
    return lambda scene: scene.entries.insert(at, item)


def before_manifest(item):
    return insert(item, at=-1)


def rename(scene):
    scene.find("a").name = b"b"


def turn_into(item):
    def change(scene):
        scene.entries[scene.place("a")] = item
    return change


# --- The place of the manifest.

def manifest_first(scene):
    scene.entries.insert(0, scene.entries.pop())


def twice(scene):
    scene.entries.append(scene.manifest)


def behind(content):
    def change(scene):
        scene.more = content
    return change


def manifest_field(field, value):
    return lambda scene: setattr(scene.manifest, field, value)


def empty_manifest_by_type(scene):
    scene.entries[-1] = entry(b"SM", support.MANIFEST_NAME, support.MANIFEST_MODE)


def cut(count):
    return lambda scene: scene.packed()[:-count]


# --- The document.

def text(old, new):
    return lambda scene: scene.replace(old, new)


def listed_digest(scene):
    """The list agrees with other data; only the signature does not."""
    support.put_data(scene.find("a"), EVIL)
    scene.replace(body_line("a", b"first"), body_line("a", EVIL))


def forged_list(signature_format):
    """A list made up as a whole, with the signature of the real one."""
    def change(scene):
        support.put_data(scene.find("a"), EVIL)
        signature = scene.document()[1]
        lines = [body_line("a", EVIL)] + LINES[1:]
        scene.put_document(support.document(support.body(lines, signature=signature_format), signature))
    return change


def signature_byte(place):
    def change(scene):
        signed, signature = scene.document()
        changed = bytearray(signature)
        changed[place] ^= 1
        scene.put_document(support.document(signed, bytes(changed)))
    return change


def other_signature(scene):
    """A good one, of another list by the same signer."""
    scene.put_document(support.document(scene.document()[0], support.openssl_sign(support.body(LINES[1:]))))


def no_signature(scene):
    scene.put_document(scene.document()[0])


def empty_signature(scene):
    scene.put_document(support.document(scene.document()[0], b""))


def crlf_everywhere(scene):
    scene.put_document(scene.manifest.data().replace(b"\n", b"\r\n"))


def signed_anew(*changes, lines=LINES, signature="PKCS7", **signer):
    """A list that a trusted key really signed: what is wrong must be found in the list itself."""
    def change(scene):
        signed = support.body(lines, signature=signature)
        for old, new in changes:
            assert old in signed, old
            signed = signed.replace(old, new)
        scene.put_document(support.document(signed, support.openssl_sign(signed, **signer)))
    return change


# --- The time stamp.

def strip_token(scene):
    signed, signature = scene.document()
    scene.put_document(support.document(signed, support.with_unsigned_attributes(signature, [])))


def strip_token_and_say_so(scene):
    strip_token(scene)
    scene.replace(b"PKCS7-TSTAMP", b"PKCS7")


def token_of_another(scene):
    signed, signature = scene.document()
    token = support.unsigned_attributes(support.split_document(scene.other)[1])
    scene.put_document(support.document(signed, support.with_unsigned_attributes(signature, token)))


def token_on_an_unstamped(scene):
    """A token is checked whenever one is there, whatever the format says."""
    signed = support.body(LINES)
    token = support.unsigned_attributes(support.split_document(scene.other)[1])
    signature = support.with_unsigned_attributes(support.openssl_sign(signed), token)
    scene.put_document(support.document(signed, signature))


def damaged_token(scene):
    signed, signature = scene.document()
    (tag, attributes), = support.unsigned_attributes(signature)
    changed = bytearray(attributes)
    changed[-1] ^= 1
    signature = support.with_unsigned_attributes(signature, [(tag, bytes(changed))])
    scene.put_document(support.document(signed, signature))


# --- What no signature covers: modes, directories, links.

def with_mode(name, mode):
    return lambda scene: setattr(scene.find(name), "mode", mode)


class Power:
    """`before` stands in the way of an extraction; then the `place` is as with -V, and otherwise as without (the control).
    A mode, or a link's target; None for what stood there."""

    def __init__(self, name, change, place, checked, unchecked, before=None):
        self.name, self.change, self.place, self.before = name, change, place, before
        self.checked, self.unchecked = checked, unchecked


DIGEST, UNLISTED = "invalid digest of archive file(s) (error 57)", "at least one file was not signed (error 58)"
MODIFIED, INVALID = "but the content was modified", "Signature invalid"
PARSER, DECODER = "Error in manifest parser", "Error in Base64 Decoder"
UNSIGNED = "is not digitally signed"
NOTHING = frozenset()

FILE_ATTACKS = [
    Attack("data changed, checksum right", other_data, 57, DIGEST, without("a")),
    Attack("one bit far inside", one_bit_of_many, 57, DIGEST, without("d/b")),
    Attack("data changed, checksum wrong", other_data_with_old_checksum, 12, "", NOTHING),
    Attack("size 0 over data", size_of_zero, 57, DIGEST, without("a")),
    Attack("data for an empty file", data_for_an_empty_file, 57, DIGEST, without("empty")),
    Attack("equal names swapped", swap_equal_names, 57, DIGEST, without("dup")),
    Attack("first of equal names removed", remove("dup"), 57, "", without("dup")),
    Attack("second of equal names removed", remove("dup", 1), 58, UNLISTED, ALL),
    Attack("third of equal names added", before_manifest(regular("dup", EVIL)), 58, UNLISTED, ALL),
    Attack("listed file removed", remove("a"), 58, UNLISTED, without("a")),
    Attack("file added", before_manifest(regular("more", EVIL)), 58, UNLISTED, ALL),
    Attack("empty file added", before_manifest(regular("more", b"")), 58, UNLISTED, ALL),
    Attack("file renamed", rename, 58, UNLISTED, without("a")),
    Attack("another spelling of a path", before_manifest(regular("./a", EVIL)), 58, UNLISTED, ALL),
    Attack("zero byte in a name", before_manifest(regular(b"a\0more", EVIL)), 58, UNLISTED, ALL),
    Attack("same file with -flat", before_manifest(regular("x/a", EVIL)), 58, UNLISTED,
           frozenset({"a", "b", "dup", "empty", "z"}), ["-flat"]),
    Attack("same file with -lower", before_manifest(regular("A", EVIL)), 58, UNLISTED, ALL, ["-lower"]),
    Attack("file turned into a link", turn_into(link("a", "/etc/passwd")), 58, UNLISTED, without("a")),
    Attack("file turned into a directory", turn_into(directory("a")), 58, UNLISTED, without("a")),
    Attack("second file of the manifest's name", before_manifest(regular(support.MANIFEST_NAME, EVIL)), 58, UNLISTED,
           ALL),
]

UMASK = 0o027
POWERS = [
    Power("set-uid and all rights", with_mode("a", 0o104777), "a", 0o750, 0o4777),
    Power("set-gid", with_mode("z", 0o102755), "z", 0o750, 0o2755),
    Power("sticky directory for everybody", with_mode("d", 0o041777), "d", 0o750, 0o1777),
    Power("set-gid directory that was there", with_mode("d", 0o042775), "d", 0o750, 0o2775, harness.Directory()),
    Power("link for a file", insert(link("l", "/etc")), "l", None, "/etc", "mine"),
    Power("link for a link", insert(link("l", "/etc")), "l", None, "/etc", harness.Link("mine")),
    Power("link at a free place", insert(link("l", "/etc")), "l", "/etc", "/etc"),
    Power("link that is there already", insert(link("l", "/etc")), "l", "/etc", "/etc", harness.Link("/etc")),
]

PLACE_ATTACKS = [
    Attack("entry behind the manifest", behind(regular("more", EVIL)), 54, MODIFIED),
    Attack("two manifests", twice, 54, MODIFIED),
    Attack("another manifest by type", behind(entry(b"SM", "X", 0o600, 4, 1, archivefile.raw_blocks(EVIL))), 54,
           MODIFIED),
    Attack("manifest first", manifest_first, 54, MODIFIED),
    Attack("junk behind the manifest", behind(b"\0"), 54, MODIFIED),
    Attack("empty manifest", empty_manifest_by_type, 5),
    Attack("archive cut", cut(1), 5),
    Attack("manifest with another mode", manifest_field("mode", 0o100600), 59, UNSIGNED),
    Attack("manifest of another name", manifest_field("name", b"signature.smf"), 59, UNSIGNED),
    Attack("manifest without size", manifest_field("size", 0), 59, UNSIGNED),
    Attack("manifest removed", lambda scene: scene.entries.pop(), 59, UNSIGNED),
]

DOCUMENT_ATTACKS = [
    Attack("digest changed", listed_digest, 60, INVALID),
    Attack("name changed", text(b" 0001 a\n", b" 0001 b\n"), 60, INVALID),
    Attack("upper-case digest", lambda scene: scene.replace(LINES[0][:64], LINES[0][:64].upper()), 60, INVALID),
    Attack("line added", text(b"| Name\n\n", b"| Name\n\n" + body_line("more", EVIL)), 60, INVALID),
    Attack("forged list under PKCS7", forged_list("PKCS7"), 60, INVALID),
    Attack("forged list under PKCS7-TSTAMP", forged_list("PKCS7-TSTAMP"), 60, INVALID),
    Attack("forged list under no format", forged_list("NONE"), 60, "The signature format is invalid"),
    Attack("signature's last byte changed", signature_byte(-1), 60, INVALID),
    Attack("signed attributes changed", signature_byte(-100), 60, INVALID),
    Attack("signature of another list", other_signature, 60, INVALID),
    Attack("no signature block", no_signature, 54, DECODER),
    Attack("empty signature block", empty_signature, 54, DECODER),
    Attack("no base64", text(b"SIGNATURE-----\nM", b"SIGNATURE-----\n*"), 54, DECODER),
    Attack("CR LF everywhere", crlf_everywhere, 54, PARSER),
]

SIGNER_ATTACKS = [
    Attack("list of another archive", signed_anew(lines=[body_line("other", b"other")]), 58, "", NOTHING),
    Attack("list of more", signed_anew(lines=LINES + [body_line("more", EVIL)]), 58, UNLISTED, ALL),
    Attack("list of less", signed_anew(lines=LINES[1:]), 58, UNLISTED, without("a")),
    Attack("signed: three digits of length", signed_anew((b" 0001 a\n", b" 001 a\n")), 54, PARSER),
    Attack("signed: zero byte in a name", signed_anew((b" 0001 a\n", b" 0002 a\0\n")), 54, PARSER),
    Attack("signed: length beyond the line", signed_anew((b" 0001 a\n", b" 7fff a\n")), 54, PARSER),
    Attack("signed: unknown digest", signed_anew((b"Hash: SHA256", b"Hash: SHA255")), 54, PARSER),
    Attack("signed: two digests", signed_anew((b"Hash: SHA256", b"Hash: SHA256\nHash: MD5")), 54, PARSER),
    Attack("signer of an authority for TLS servers", signed_anew(signer="tls_issued", certificates="tls_ca.crt"), 60,
           INVALID),
    Attack("promised time stamp is missing", signed_anew(signature="PKCS7-TSTAMP"), 60, INVALID),
    Attack("token stripped", strip_token, 60, INVALID, stamped=True),
    Attack("token stripped, format changed", strip_token_and_say_so, 60, INVALID, stamped=True),
    Attack("format changed", text(b"PKCS7-TSTAMP", b"PKCS7"), 60, INVALID, stamped=True),
    Attack("token of another signature", token_of_another, 60, INVALID, stamped=True),
    Attack("token on a plain signature", token_on_an_unstamped, 60, INVALID),
    Attack("token damaged", damaged_token, 60, INVALID, stamped=True),
]
