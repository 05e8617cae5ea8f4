"""libtolven.so.1 through ctypes: the structures and functions of tolven/archive.h, and nothing above them."""
import ctypes
import os
from ctypes import (CFUNCTYPE, POINTER, Structure, c_char_p, c_int, c_int32, c_int64, c_size_t, c_uint32, c_uint64,
                    c_void_p)

OK, END, E_ARGUMENT, E_STATE, E_CANCELLED, E_LENGTH, E_NOT_FOUND = 0, -1, -2, -3, -4, -5, -6
FILE, DIRECTORY, LINK, SIGNATURE = 1, 2, 3, 4
KEEP_DIRECTORIES = 1
VERIFY_DATA = 1

PROGRESS = CFUNCTYPE(c_int, c_void_p, c_uint64, c_uint64)
MESSAGE = CFUNCTYPE(None, c_void_p, c_char_p)
READ = CFUNCTYPE(c_int64, c_void_p, c_void_p, c_size_t)
SEEK = CFUNCTYPE(c_int64, c_void_p, c_int64, c_int)


class Options(Structure):
    _fields_ = [("struct_size", c_size_t), ("context", c_void_p), ("progress", PROGRESS), ("message", MESSAGE),
                ("threads", c_uint32)]


class Callbacks(Structure):
    _fields_ = [("struct_size", c_size_t), ("context", c_void_p), ("read", READ), ("seek", SEEK), ("write", READ)]


class Entry(Structure):
    # Texts as addresses: ctypes would cut a char pointer at its first zero byte.
    _fields_ = [("struct_size", c_size_t), ("archive", c_void_p), ("name", c_void_p), ("name_size", c_size_t),
                ("target", c_void_p), ("target_size", c_size_t), ("type", c_int32), ("mode", c_uint32),
                ("size", c_uint64), ("mtime", c_int64), ("number", c_uint64)]


class Trust(Structure):
    _fields_ = [("struct_size", c_size_t), ("file", c_char_p), ("memory", c_char_p), ("memory_size", c_size_t),
                ("password", c_char_p), ("crl", c_char_p), ("crl_size", c_size_t), ("library", c_char_p)]


class Text(Structure):
    _fields_ = [("bytes", c_void_p), ("size", c_size_t)]


class Verdict(Structure):
    _fields_ = [("struct_size", c_size_t), ("code", c_int32), ("manifest_code", c_int32), ("crypto_code", c_int32),
                ("reason", c_char_p), ("key", c_char_p), ("subject", c_char_p), ("issuer", c_char_p),
                ("signing_time", c_char_p), ("time_stamp", c_char_p), ("digest", c_char_p), ("covered", POINTER(Text)),
                ("covered_count", c_uint64)]


def new(structure):
    """The structure with its size set."""
    return structure(struct_size=ctypes.sizeof(structure))


FUNCTIONS = {
    "version": (c_char_p,),
    "new": (c_void_p, POINTER(Options)),
    "free": (None, c_void_p),
    "error_code": (c_int32, c_void_p),
    "error_text": (c_char_p, c_void_p),
    "cancel": (None, c_void_p),
    "open": (c_int32, c_void_p, c_char_p),
    "open_descriptor": (c_int32, c_void_p, c_int),
    "open_callbacks": (c_int32, c_void_p, POINTER(Callbacks)),
    "next": (c_int32, c_void_p, POINTER(Entry)),
    "rewind": (c_int32, c_void_p),
    "read": (c_int64, c_void_p, c_void_p, c_size_t),
    "extract_to": (c_int32, c_void_p, c_int, c_uint32),
    "extract": (c_int32, c_void_p),
    "extract_finish": (c_int32, c_void_p),
    "extract_all": (c_int32, c_void_p, c_int, c_uint32),
    "index": (c_int32, c_void_p),
    "index_count": (c_uint64, c_void_p),
    "index_entry": (c_int32, c_void_p, c_uint64, POINTER(Entry)),
    "index_find": (c_int32, c_void_p, c_char_p, c_size_t, POINTER(Entry)),
    "entry_pread": (c_int64, POINTER(Entry), c_void_p, c_size_t, c_uint64),
    "entry_check": (c_int32, POINTER(Entry)),
    "verify": (c_int32, c_void_p, POINTER(Trust), c_uint32, POINTER(Verdict)),
    "writer_new": (c_void_p, POINTER(Options)),
    "writer_free": (None, c_void_p),
    "writer_error_code": (c_int32, c_void_p),
    "writer_error_text": (c_char_p, c_void_p),
    "writer_cancel": (None, c_void_p),
    "create": (c_int32, c_void_p, c_char_p),
    "create_descriptor": (c_int32, c_void_p, c_int),
    "create_callbacks": (c_int32, c_void_p, POINTER(Callbacks)),
    "add_path": (c_int32, c_void_p, c_char_p, c_char_p, c_size_t),
    "add_entry": (c_int32, c_void_p, POINTER(Entry), READ, c_void_p),
    "finish": (c_int32, c_void_p),
    "abort": (None, c_void_p),
}


def find_library():
    """In a wheel beside this file, in a build tree beside the module, when installed where the prefix of both says, else
    where the loader looks."""
    here = os.path.dirname(os.path.realpath(__file__))
    for place in (".", "..", "../../../../lib", "../../../../lib64", "../../../../lib/x86_64-linux-gnu"):
        path = os.path.join(here, place, "libtolven.so.1")
        if os.path.exists(path):
            return path
    return "libtolven.so.1"


class Library:
    """The functions of the header, without their prefix."""

    def __init__(self):
        self._library = ctypes.CDLL(os.environ.get("TOLVEN_LIBRARY") or find_library())
        for name, (result, *arguments) in FUNCTIONS.items():
            function = getattr(self._library, "tolven_" + name)
            function.restype, function.argtypes = result, arguments
            setattr(self, name, function)


library = Library()
