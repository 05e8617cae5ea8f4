"""What tolven-ls and tolven-diff share: escaping, arguments, and how a failure ends."""
import argparse
import datetime
import os
import sys

import tolven

TYPES = {tolven.FILE: "file", tolven.DIRECTORY: "directory", tolven.LINK: "link", tolven.SIGNATURE: "signature"}


def shown(name, terminal=None):
    """A name as it goes to the output. On a terminal whatever does not print is shown byte by byte in octal, and so is
    a backslash that would look like that; a program that reads gets the bytes, one line a name."""
    text = os.fsdecode(name)
    if not (sys.stdout.isatty() if terminal is None else terminal):
        return text
    escaped = []
    for at, character in enumerate(text):
        digits = text[at + 1:at + 4]
        looks_escaped = character == "\\" and len(digits) == 3 and all(digit in "01234567" for digit in digits)
        if character.isprintable() and not looks_escaped:
            escaped.append(character)
        else:
            escaped += [f"\\{byte:03o}" for byte in os.fsencode(character)]
    return "".join(escaped)


def utc(seconds):
    """ISO 8601 with seconds; what no calendar holds stays a number."""
    try:
        moment = datetime.datetime(1970, 1, 1) + datetime.timedelta(seconds=seconds)
        return moment.isoformat(timespec="seconds") + "Z"
    except OverflowError:
        return str(seconds)


def parser(name, **texts):
    made = argparse.ArgumentParser(prog=name, formatter_class=argparse.RawDescriptionHelpFormatter, **texts)
    made.add_argument("--version", action="version", version=f"{name} {tolven.version()}")
    return made


def complain(name, subject, error):
    print(f"{name}: {shown(subject, sys.stderr.isatty())}: {shown(str(error), sys.stderr.isatty())}", file=sys.stderr)


def run(name, body):
    """The exit code of `body`, whatever its output is: one that nobody reads any more is no trouble."""
    for stream in (sys.stdout, sys.stderr):
        stream.reconfigure(errors="surrogateescape")
    try:
        code = body()
        sys.stdout.flush()
        return code
    except BrokenPipeError:
        os.dup2(os.open(os.devnull, os.O_WRONLY), 1)
        return 141
    except KeyboardInterrupt:
        return 130
    except OSError as error:
        print(f"{name}: {error}", file=sys.stderr)
        return 2
