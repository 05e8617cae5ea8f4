"""TOLVEN archives: walk, read at any offset, extract, write.

    with tolven.open("delivery.vra") as archive:
        for entry in archive:
            print(entry.name, entry.size)
        archive.extract_all("target")

The module stands over libtolven.so.1 (TOLVEN_LIBRARY names another file) and prints nothing. Failures are
tolven.Error, with the number that the program would end with, or a negative one of tolven/archive.h.
"""
from __future__ import annotations

import ctypes
import errno
import io
import os
from typing import BinaryIO, Callable, Iterator, NamedTuple, Optional, Union

from . import _library as _c
from ._library import DIRECTORY, FILE, LINK, SIGNATURE, library as _lib

__all__ = ["Archive", "DIRECTORY", "Entry", "Error", "FILE", "LINK", "SIGNATURE", "Verdict", "Writer", "create", "open",
           "version"]

Progress = Callable[[int, int], object]
Message = Callable[[str], object]
Source = Union[str, bytes, "os.PathLike[str]", int, BinaryIO]


class Error(Exception):
    """What a call came to: `code` as the program ends with, or negative; the text as the program prints it."""

    def __init__(self, code: int, text: str):
        super().__init__(text)
        self.code = code


class Cancelled(Error):
    """The progress callback said so, or cancel was called."""


def version() -> str:
    return _lib.version().decode()


class _Handle:
    """What reader and writer share: options, callbacks kept alive, errors raised, exceptions of callbacks too."""

    _prefix = ""

    def __init__(self, progress: Optional[Progress], message: Optional[Message], threads: int):
        self._kept: list = []
        self._raised: Optional[BaseException] = None
        options = _c.new(_c.Options)
        options.threads = threads
        if progress is not None:
            options.progress = self._keep(_c.PROGRESS(self._guard(lambda _, at, total: 1 if progress(at, total) else 0, 1)))
        if message is not None:
            options.message = self._keep(_c.MESSAGE(self._guard(lambda _, text: message(os.fsdecode(text)), None)))
        self._handle = self._function("new")(options)
        if not self._handle:
            raise MemoryError

    def _function(self, name: str):
        return getattr(_lib, self._prefix + name)

    def _keep(self, thing):
        self._kept.append(thing)
        return thing

    def _guard(self, body, failed):
        """No exception may cross C: it is raised where the call returns."""
        def guarded(*arguments):
            try:
                return body(*arguments)
            except BaseException as exception:  # KeyboardInterrupt too
                self._raised = exception
                return failed
        return guarded

    def _open_handle(self):
        if not self._handle:
            raise ValueError("the archive is closed")
        return self._handle

    def _check(self, result: int) -> int:
        raised, self._raised = self._raised, None
        if raised is not None:
            raise raised
        if result in (_c.OK, _c.END):
            return result
        code = self._function("error_code")(self._open_handle())
        text = os.fsdecode(self._function("error_text")(self._open_handle()))
        raise (Cancelled if code == _c.E_CANCELLED else Error)(code, text)

    def _count(self, result: int) -> int:
        if result < 0:
            self._check(_c.E_ARGUMENT)
        elif self._raised is not None:
            self._check(_c.OK)
        return result

    def cancel(self) -> None:
        """From any thread: the call that is running ends with Cancelled."""
        self._function("cancel")(self._open_handle())

    def close(self) -> None:
        handle, self._handle = self._handle, None
        if handle:
            self._function("free")(handle)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def __del__(self):
        if getattr(self, "_handle", None):
            self.close()

    def _callbacks(self, file: BinaryIO) -> _c.Callbacks:
        def read(_, buffer, size):
            data = file.read(size)
            ctypes.memmove(buffer, data, len(data))
            return len(data)

        def write(_, buffer, size):
            return file.write(ctypes.string_at(buffer, size))

        callbacks = _c.new(_c.Callbacks)
        callbacks.read = _c.READ(self._guard(read, -errno.EIO))
        callbacks.seek = _c.SEEK(self._guard(lambda _, offset, whence: file.seek(offset, whence), -errno.EIO))
        callbacks.write = _c.READ(self._guard(write, -errno.EIO))
        return self._keep(callbacks)


class Entry:
    """One entry of an archive: name, type, mode, size, mtime (seconds, UTC), target of a link, number."""

    __slots__ = ("_archive", "_indexed", "number", "raw_name", "raw_target", "type", "mode", "size", "mtime")

    def __init__(self, archive: Archive, entry: _c.Entry, indexed: bool):
        self._archive = archive
        self._indexed = indexed
        self.number: int = entry.number
        self.raw_name: bytes = ctypes.string_at(entry.name, entry.name_size)
        self.raw_target: Optional[bytes] = None
        if entry.target:
            self.raw_target = ctypes.string_at(entry.target, entry.target_size)
        self.type: int = entry.type
        self.mode: int = entry.mode
        self.size: int = entry.size
        self.mtime: int = entry.mtime

    def __repr__(self) -> str:
        return f"<tolven.Entry {self.name!r}>"

    @property
    def name(self) -> str:
        return os.fsdecode(self.raw_name)

    @property
    def target(self) -> Optional[str]:
        return None if self.raw_target is None else os.fsdecode(self.raw_target)

    def is_file(self) -> bool:
        return self.type == FILE

    def is_directory(self) -> bool:
        return self.type == DIRECTORY

    def is_link(self) -> bool:
        return self.type == LINK

    def chunks(self, size: int = 1 << 16) -> Iterator[bytes]:
        """The data from its beginning, checked when it ends. Of a walk: only while this is its current entry."""
        if self._indexed:
            self.check()
            for offset in range(0, self.size, size):
                yield self.pread(size, offset)
            return
        buffer = ctypes.create_string_buffer(size)
        while count := self._archive._read(self, buffer, size):
            yield buffer.raw[:count]

    def read(self) -> bytes:
        """All of the data, checked."""
        return b"".join(self.chunks())

    def pread(self, size: int, offset: int) -> bytes:
        """Data at any offset of an entry of the index; fewer bytes at the end. Any number of threads."""
        buffer = ctypes.create_string_buffer(size)
        count = self._archive._pread(self, buffer, size, offset)
        return buffer.raw[:count]

    def check(self) -> None:
        """Checks all of the data of an entry of the index."""
        self._archive._check_entry(self)

    def extract(self) -> None:
        """Below the directory of Archive.extract_to, while this is the current entry of the walk."""
        self._archive._extract(self)


class Verdict(NamedTuple):
    """What a signature was found to be; texts are "" where nothing is known. `covered`: raw names of the files."""

    code: int
    manifest_code: int
    crypto_code: int
    reason: str
    key: str
    subject: str
    issuer: str
    signing_time: str
    time_stamp: str
    digest: str
    covered: list[bytes]


class Index:
    """The entries by number, and by name (str or bytes: the last one of that name)."""

    def __init__(self, archive: Archive):
        self._archive = archive

    def __len__(self) -> int:
        return _lib.index_count(self._archive._open_handle())

    def __getitem__(self, key: Union[int, str, bytes]) -> Entry:
        entry = _c.new(_c.Entry)
        handle = self._archive._open_handle()
        if isinstance(key, int):
            result = _lib.index_entry(handle, key if key >= 0 else key + len(self), entry)
        else:
            name = os.fsencode(key)
            result = _lib.index_find(handle, name, len(name), entry)
        if result == _c.E_NOT_FOUND:
            raise (IndexError if isinstance(key, int) else KeyError)(key)
        self._archive._check(result)
        return Entry(self._archive, entry, True)

    def __iter__(self) -> Iterator[Entry]:
        return (self[number] for number in range(len(self)))


class Archive(_Handle):
    """An archive that is read; see open."""

    def __init__(self, source: Source, progress: Optional[Progress] = None, message: Optional[Message] = None,
                 threads: int = 0):
        super().__init__(progress, message, threads)
        self._current: Optional[int] = None
        if isinstance(source, int):
            self._check(_lib.open_descriptor(self._handle, source))
        elif hasattr(source, "read"):
            self._check(_lib.open_callbacks(self._handle, self._callbacks(source)))
        else:
            self._check(_lib.open(self._handle, os.fsencode(source)))

    def __iter__(self) -> Iterator[Entry]:
        """The entries from the first on. One walk at a time: a second one begins it again."""
        self._current = None
        self._check(_lib.rewind(self._open_handle()))
        entry = _c.new(_c.Entry)
        while self._check(_lib.next(self._open_handle(), entry)) != _c.END:
            self._current = entry.number
            yield Entry(self, entry, False)
        self._current = None

    def index(self) -> Index:
        """Walks the headers once; what it returns knows every entry and reads at any offset."""
        self._current = None
        self._check(_lib.index(self._open_handle()))
        return Index(self)

    def verify(self, trust: Union[str, "os.PathLike[str]", bytes, None] = None, *, data: bool = True,
               password: Optional[str] = None, crl: Optional[bytes] = None, library: Optional[str] = None) -> Verdict:
        """Checks the signature, by the certificates in the file `trust` (bytes: the content of such a file; None:
        the installed ones), and with `data` every file by its digest. Error unless all of it is good; from then on
        only what was signed is read or extracted."""
        self._current = None
        given, verdict = _c.new(_c.Trust), _c.new(_c.Verdict)
        if isinstance(trust, bytes):
            given.memory, given.memory_size = trust, len(trust)
        elif trust is not None:
            given.file = os.fsencode(trust)
        given.password = None if password is None else os.fsencode(password)
        given.library = None if library is None else os.fsencode(library)
        if crl is not None:
            given.crl, given.crl_size = crl, len(crl)
        self._check(_lib.verify(self._open_handle(), given, _c.VERIFY_DATA if data else 0, verdict))
        texts = [os.fsdecode(getattr(verdict, name)) for name in Verdict._fields[3:-1]]
        covered = [ctypes.string_at(text.bytes, text.size) for text in verdict.covered[:verdict.covered_count]]
        return Verdict(verdict.code, verdict.manifest_code, verdict.crypto_code, *texts, covered)

    def extract_to(self, directory: Union[str, "os.PathLike[str]", int], keep_directories: bool = False) -> None:
        """Entries that are extracted go below `directory` from now on; extract_finish completes them."""
        self._with_directory(_lib.extract_to, directory, keep_directories)

    def extract_finish(self) -> None:
        """Makes the links, and sets times and modes of the directories."""
        self._check(_lib.extract_finish(self._open_handle()))

    def extract_all(self, directory: Union[str, "os.PathLike[str]", int], keep_directories: bool = False) -> None:
        """Everything, with the program's own safety."""
        self._current = None
        self._with_directory(_lib.extract_all, directory, keep_directories)

    def _with_directory(self, function, directory, keep_directories: bool) -> None:
        flags = _c.KEEP_DIRECTORIES if keep_directories else 0
        if isinstance(directory, int):
            self._check(function(self._open_handle(), directory, flags))
            return
        descriptor = os.open(directory, os.O_PATH | os.O_DIRECTORY | os.O_CLOEXEC)
        try:
            self._check(function(self._open_handle(), descriptor, flags))
        finally:
            os.close(descriptor)

    def _must_be_current(self, entry: Entry) -> None:
        if entry._indexed or entry.number != self._current:
            raise ValueError("not the current entry of the walk")

    def _read(self, entry: Entry, buffer, size: int) -> int:
        self._must_be_current(entry)
        return self._count(_lib.read(self._open_handle(), buffer, size))

    def _extract(self, entry: Entry) -> None:
        self._must_be_current(entry)
        self._check(_lib.extract(self._open_handle()))

    def _reference(self, entry: Entry) -> _c.Entry:
        if not entry._indexed:
            raise ValueError("not an entry of the index")
        reference = _c.new(_c.Entry)
        reference.archive = self._open_handle()
        reference.number = entry.number
        return reference

    def _pread(self, entry: Entry, buffer, size: int, offset: int) -> int:
        return self._count(_lib.entry_pread(self._reference(entry), buffer, size, offset))

    def _check_entry(self, entry: Entry) -> None:
        self._check(_lib.entry_check(self._reference(entry)))


class Writer(_Handle):
    """An archive that is written; see create. Leaving the with block finishes it, an exception aborts it."""

    _prefix = "writer_"

    def __init__(self, target: Source, progress: Optional[Progress] = None, message: Optional[Message] = None,
                 threads: int = 0):
        super().__init__(progress, message, threads)
        self._open = False
        if isinstance(target, int):
            self._check(_lib.create_descriptor(self._handle, target))
        elif hasattr(target, "write"):
            self._check(_lib.create_callbacks(self._handle, self._callbacks(target)))
        else:
            self._check(_lib.create(self._handle, os.fsencode(target)))
        self._open = True

    def add(self, path: Union[str, bytes, "os.PathLike[str]"], name: Union[str, bytes, None] = None) -> None:
        """A file, directory (the entry alone) or link of the file system."""
        stored = os.fsencode(path if name is None else name)
        self._check(_lib.add_path(self._open_handle(), os.fsencode(path), stored, len(stored)))

    def add_tree(self, path: Union[str, "os.PathLike[str]"], name: Optional[str] = None) -> None:
        """The same with everything below a directory, in the order of the names."""
        name = os.fspath(path) if name is None else name
        self.add(path, name)
        if os.path.isdir(path) and not os.path.islink(path):
            for child in sorted(os.listdir(path)):
                self.add_tree(os.path.join(path, child), f"{name.rstrip('/')}/{child}")

    def add_bytes(self, name: Union[str, bytes], data: bytes, mode: int = 0o644, mtime: int = 0) -> None:
        self.add_stream(name, io.BytesIO(data), len(data), mode, mtime)

    def add_stream(self, name: Union[str, bytes], stream: BinaryIO, size: int, mode: int = 0o644, mtime: int = 0) -> None:
        """A file whose data is read from `stream`: `size` bytes, or the writer fails."""
        def read(_, buffer, room):
            data = stream.read(room)
            ctypes.memmove(buffer, data, len(data))
            return len(data)
        self._add(FILE, name, _c.READ(self._guard(read, -errno.EIO)), size=size, mode=mode, mtime=mtime)

    def add_directory(self, name: Union[str, bytes], mode: int = 0o755, mtime: int = 0) -> None:
        self._add(DIRECTORY, name, _c.READ(), mode=mode, mtime=mtime)

    def add_link(self, name: Union[str, bytes], target: Union[str, bytes], mtime: int = 0) -> None:
        self._add(LINK, name, _c.READ(), target=os.fsencode(target), mode=0o777, mtime=mtime)

    def _add(self, kind: int, name: Union[str, bytes], read, target: bytes = b"", **members: int) -> None:
        entry = _c.new(_c.Entry)
        texts = [ctypes.create_string_buffer(text) for text in (os.fsencode(name), target)]  # alive during the call
        entry.type = kind
        entry.name, entry.name_size = ctypes.addressof(texts[0]), len(texts[0]) - 1
        if target:
            entry.target, entry.target_size = ctypes.addressof(texts[1]), len(target)
        for member, value in members.items():
            setattr(entry, member, value)
        self._check(_lib.add_entry(self._open_handle(), entry, read, None))

    def finish(self) -> None:
        self._open = False
        self._check(_lib.finish(self._open_handle()))

    def abort(self) -> None:
        self._open = False
        _lib.abort(self._open_handle())

    def __exit__(self, kind, *_):
        try:
            if self._open and kind is None:
                self.finish()
        finally:
            self.close()


def open(source: Source, *, progress: Optional[Progress] = None, message: Optional[Message] = None,
         threads: int = 0) -> Archive:
    """Opens an archive to be read: a path, a descriptor, or a binary file object that can seek.

    progress(position, total) is told what was passed of the archive; a true value cancels. message(text) gets
    what the program would have printed. threads: 0 is the calling thread alone.
    """
    return Archive(source, progress, message, threads)


def create(target: Source, *, progress: Optional[Progress] = None, message: Optional[Message] = None,
           threads: int = 0) -> Writer:
    """Begins an archive: at a path, which it gets when it is finished, or in a descriptor or binary file object."""
    return Writer(target, progress, message, threads)
