#include "report/user_info.h"

#include <algorithm>
#include <iomanip>
#include <sstream>

namespace tolven {
namespace {

// Shown as it stands, blanks at line ends included. The log manager ends the last line.
constexpr const char* kUsage = R"usage(usage:

create a new archive:
TOLVEN -c[vir][f archive] [-P] [-C directory]
   [-A filename] [-T filename] [-X filename]
   [-p value] [-V] file1 file2 ...

list the contents of an archive:
TOLVEN -t[vs][f archive] [file1 file2....]

extract files from an archive:
TOLVEN -x[v][f archive] [-R directory] [-A filename]
   [-V] [file1 file2....]

verify an archive:
TOLVEN -d[v][f archive] [-V] [file1 file2....]

append files to an archive:
TOLVEN -a[v][f archive] file1 [file2....]

merge two archives:
TOLVEN -m[v]f "source target"

check availability of files to be processed:
TOLVEN -l [-A filename][-X filename] [file1 file2...]

sign archive:
TOLVEN -S[v]f MY.VRA [-key keyname] [-H file hash]

verify the content of signed manifest:
TOLVEN -M[v][f manifest file] [-manifest file]

options:
-a            : append files to an archive
-A FILE       : get names to include from file FILE
-backup       : run in backup mode: include ACL data
                (supported by UNICODE TOLVen on Windows platforms only)
-c            : create a new archive
-C DIR        : change to directory DIR
-crl FILE     : use FILE as CRL for a revocation check
-d            : verify an archive
-e            : redirect output from stdout to file tolven_output
-f FILE       : use archive file FILE (default DEFAULT.VRA)
-flat         : don't preserve file path when extracting files
-g            : ignore case of of archive names while extracting,
                testing or listing archives
-h            : do not change permissions of existing directories
                during extraction
-H ALGORITHM  : use ALGORITHM for file hash calculation
                (default: SHA256)
-i            : ignore inaccessible files while creating an archive
-j            : forcibly extracts files (includes option -h) by first deleting
                then creating existing files with current user as owner
-key FILE     : use FILE for signature operations (default: QEL) 
-l            : check availability of files to be processed
-L FILE       : use security library FILE for signature operations
                (default: libqelcrypto.so)
-lower        : convert filenames to lowercase while extracting
-m            : merge two archives
-M            : verify external manifest file
-manifest FILE: external manifest FILE
-n            : print statistical information
-p octalvalue : set permissions of all files in archive to value
-P            : use absolute path-names (use carefully)
-pwd PASSWORD : Password of PSE (default: no password)  
-r            : do not resolve symbolic links/shortcuts while creating
                an archive
-R dir        : use dir instead of current directory
-S            : create a digital signature of an archive
-s            : do free space check
-t            : list the contents of an archive
-T FILE       : rename files to be included in FILE
-v            : verbosely list files processed
-V            : activate signature verification in existing
                commands -a, -c, -d, -t and -x.
-x            : extract files from an archive
-xnopvalid    : Do not validate file paths during extraction, such as removing the
                drive letter/leading slashes in file paths and normalizing directory
                traversal commands like ../ to prevent directory traversal attack
                (use this option with caution at your own risk)
-X FILE       : get names to exclude from FILE
-y ALGORITHM  : signature hash algorithm (default: SHA256)

examples:
create archive with all files and directories in the current directory
including point files:
TOLVEN -cvf MY.VRA .

create archive with all files and directories in the current directory
without point files:
TOLVEN -cvf MY.VRA *
Note that TOLVEN treats "*" and "?" as wildcard characters. The former
matches any character string, while the latter matches any single
character.

create archive with a complete directory and directory rights:
TOLVEN -cvf MY.VRA dir

create archive with all files of a directory without the directory
itself:
TOLVEN -cvf MY.VRA dir/*
if during extraction with TOLVEN -xvf MY.VRA the directory dir does not
exist it will be created with rights 755

create archive with only the files of a directory
TOLVEN -cvf MY.VRA -C dir .
or better
(cd dir; TOLVEN -cvf ../MY.VRA .)

merge two archives:
TOLVEN -mvf "source-archive.vra target-archive.vra"

append files to an archive:
TOLVEN -avf archive.vra file1 file2 file3

sign an existing archive:
TOLVEN -Svf MY.VRA [-L library] [-key PSE] [-pwd PSE PIN] [-H algorithm]

verify an existing archive signature:
TOLVEN -dVf MY.VRA [-L library] [-key PSE] [-pwd PSE PIN] [-crl CRL] 

verify an existing archive signature and file hashes:
TOLVEN -tVvf MY.VRA [-L library] [-key PSE] [-pwd PSE PIN] [-crl CRL] [file1 file2....]

verify a local signed manifest with extracted files:
TOLVEN -M -manifest qel.manifest

extracting/verifying files:
If you try to extract files from an archive that is not a valid TOLVEN
archive according to the version 2 specification TOLVEN assumes an archive
of the old format and automatically invokes the appropriate extraction
routine. If it still cannot handle the archive it will stop execution.
Notice that extracting out of old archives only works with the command
options known to the old ORV application.

using absolute pathnames:
If you create an archive with absolute pathnames the files will be
extracted with exactly these pathnames! TOLVEN does not cut the first
slash like the UNIX tool tar.

specifying a list of archives for extracting/verifying/listing:
Enclose the list with double quotes.
If there is no whitespace in any archive path the list must be separated by
space or comma; e.g.
   TOLVEN -xvf "ARCHIVE1.VRA ARCHIVE2.VRA"
If at least one archive path contains whitespace the list must be comma
separated; e.g.
   TOLVEN -xvf "ARCHIVE WITH BLANK.VRA, ARCHIVE.VRA, ARCHIVE2.VRA"

specifying a single archive path containing whitespace:
Enclose the archive name with double quotes.
 creating: You must not append a comma except it is part of the path; e.g.
   TOLVEN -cvf "ARCHIVE WITH BLANK.VRA" *
 extracting/verifying/listing: You must append a comma; e.g.
   TOLVEN -xvf "ARCHIVE WITH BLANK.VRA,"

In order to extract/verify/list more than one archive using wildcards you
have to quote the file name argument in order to bypass wildcard evaluation
by the shell. So a call like
   TOLVEN -xvf K*.vra
will result in only one archive beeing extracted,
whereas
   TOLVEN -xvf "K*.vra"
will have TOLVEN extracting all archives in the current directory that
match the pattern "K*.vra".

using A, T and X option:
All entries in the specified files are treated relative to the current
working directory unless the entry is an absolute pathname (in this case
the relevant file will be archived with an absolute pathname).
If you want to specify a directory path in these files use the slash ("/")
as path delimiter.

Use the pipe sign ("|") to separate old and new names in a T file when
these names contain whitespaces. If neither the old file name nor the new
one contains any whitespaces you may use whitespaces as delimiter between
old and new name (that means a valid ORV rename file is also a valid TOLVEN
rename file and hence may be given with the -T option).
Note that pattern matching is not supported for entries in -A, -T and -X
files (i.e. "*.cpp" will not result in processing all cpp-files
in the current directory).

Lines starting with "#" as the first non whitespace character will be
ignored by TOLVEN (this also holds true of lines containing only
whitespaces).

If you insert a directory name in the specified file the complete
directory with the directory rights will be included in the archive.

If you specify dir/filename only this file will be included in
the archive. During extraction the directory dir will be created if
it does not exist.

using -C option:
All relative filenames in the command line are treated as relative
to the specified directory.

using -S / -V option:
Activate signature creation (-S) and verification (-V) during command 
execution of -a, -c, -d, -t and -x. This option creates and verifies signed 
archives. The archive signature works with a signed manifest file, which is 
stored at the end of the archive. It contains a TOC of all file entries. This 
TOC is signed. This ensures integrity and authenticity of the archive entries.)usage";

}  // namespace

std::string CUsage::GetInfoText() const {
  return kUsage;
}

std::string CStatistics::GetInfoText() const {
  // The wall clock may have been set back during the run.
  const std::int64_t seconds = std::max<std::int64_t>(m_elapsedSeconds, 0);
  std::ostringstream out;
  out.exceptions(std::ios::badbit);  // for want of memory: not a line that ends early
  out << std::setfill('0');
  out << "Printing program statistics for TOLVEN...\n";
  out << "time elapsed: " << std::setw(2) << seconds / 3600 << ":" << std::setw(2) << seconds / 60 % 60 << ":"
      << std::setw(2) << seconds % 60 << " (hh:mm:ss)\n";
  out << "Files processed: " << m_filesProcessed;
  return out.str();
}

}  // namespace tolven
