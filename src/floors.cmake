# The floors of src/, from the ground up, and the one place where they are listed: a folder, and behind the colon the
# folders whose headers it may include. The libraries, the static library and the include test (tests/check_includes.py)
# read it; a new folder is a line here. No two top folders may include each other, whatever their inner folders do.
# Targets are named after their folder: tolven_signing_hash.
set(TOLVEN_FLOORS
  "cslib:"
  "report:"
  "fileio: report"
  "cmdline: fileio report"
  "archive: cmdline fileio report cslib"
  "oldarchive: cmdline fileio report cslib"
  "archive/commands: archive oldarchive cmdline fileio report"
  "signing/hash: cslib"
  "signing/crypto: report"
  "signing/manifest: signing/hash signing/crypto fileio report"
  "signing: archive cmdline fileio report cslib signing/manifest signing/crypto"
  "main: archive/commands signing archive oldarchive cmdline fileio report signing/manifest"
  "library: main signing archive cmdline fileio report cslib signing/manifest signing/hash")
