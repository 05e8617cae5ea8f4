# The floors of src/, from the ground up, and the one place where they are listed: a folder, and behind the colon the
# folders whose headers it may include. The libraries, the static library and the include test (tests/check_includes.py)
# read it; a new folder is a line here. Targets are named after their folder: tolven_signing_hash.
set(TOLVEN_FLOORS
  "cslib:"
  "report:"
  "fileio: report"
  "cmdline: fileio report"
  "signing/hash: cslib"
  "signing/crypto: report"
  "signing/manifest: signing/hash signing/crypto fileio report"
  "main/run: cmdline fileio report"
  "archive: main/run cmdline fileio report cslib signing/manifest"
  "oldarchive: main/run cmdline fileio report cslib"
  "signing: archive main/run cmdline fileio report cslib signing/manifest signing/crypto"
  "archive/commands: signing archive oldarchive main/run cmdline fileio report"
  "main: archive/commands signing archive oldarchive main/run cmdline fileio report signing/manifest")
