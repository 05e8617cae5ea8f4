#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tolven {

// What the run is to do. The numbers are part of the processor's interface.
enum CommandCode : int {
  CMD_NONE = 0,
  CMD_CREATE = 1,
  CMD_TEST = 2,
  CMD_EXTRACT = 3,
  CMD_LIST = 4,
  CMD_APPEND = 5,
  CMD_MERGE = 6,
  CMD_SCAN = 7,
  CMD_SIGN = 8,
  CMD_VERIFY_MANIFEST = 9,
};

// Every parsed option with its default; assigning {} resets the command line. Texts point into the argument
// vector (or into the embedding caller's copy); nothing is owned.
struct CmdOptions {
  bool verbose = false;
  bool spaceCheck = false;
  bool absolutePaths = false;
  bool verifyAsked = false;  // V or M was written, wherever: only signed archives pass. S alone does not ask
  bool ignoreInaccessible = false;
  bool resolveLinks = true;
  bool printStatistics = false;
  bool changeDirPermissions = true;  // of directories that exist already
  bool forceExtraction = false;
  bool ignoreCase = false;
  bool redirectOutput = false;
  bool lowerCase = false;
  bool flat = false;
  bool addPrivileges = false;  // no option sets it on this platform
  bool sign = false;
  bool verifySignature = false;
  bool noPathValidation = false;
  const char* targetDir = nullptr;               // -R
  const char* sourceDir = nullptr;               // -C
  const char* permissionText = nullptr;          // -p as given; null: not given
  std::uint32_t permission = 0;                  // -p as a number
  const char* includeFile = nullptr;             // -A
  const char* excludeFile = nullptr;             // -X
  const char* renameFile = nullptr;              // -T
  const char* hashAlgorithm = nullptr;           // -H
  const char* key = nullptr;                     // -key
  const char* password = nullptr;                // -pwd
  const char* securityLibrary = nullptr;         // -L
  const char* fText = nullptr;                   // -F: stored, without a reader
  const char* signatureHashAlgorithm = nullptr;  // -y
  const char* manifestFile = nullptr;            // -manifest
  const char* crlFile = nullptr;                 // -crl
  const char* tsaUrl = nullptr;                  // -tsaurl
  const char* proxyUrl = nullptr;                // -proxy
  const char* archiveText = nullptr;             // -f
  unsigned threads = 0;                          // for an embedded run; 0: see ThreadCount
  int command = CMD_NONE;
};

// Parses the arguments once and hands out what they mean. Process-wide; the processor ends it.
class CCmdLine {
 public:
  CCmdLine() = default;

  // The singleton, made on first use.
  static CCmdLine* GetTheCmdLine();
  // Ends the singleton; the next GetTheCmdLine makes a fresh one.
  static void Destroy();

  // Parses argv[1..argc-1], which must outlive the object; throws CExcept at the first error. The text of
  // -pwd, and user and password in the addresses of -tsaurl and -proxy, are overwritten in `argv`; the object
  // keeps a copy.
  void SetOptions(int argc, char** argv);
  // Stores the argument of option `optionName` in `target`; throws 18 (given twice) or 19 (no argument).
  static void GetOptionArg(const char*& target, const char* arg, const char* optionName);

  const CmdOptions& Options() const { return m_options; }
  // For the embedded entry, which sets options without arguments.
  CmdOptions& MutableOptions() { return m_options; }
  // Makes the files of the signing options mean what they meant in `directory`, before -C leads away from it.
  // A key without "/" is a name, and one that begins with "pkcs11:" an address; both stay as they are.
  void AnchorFileOptions(const std::string& directory);
  // As if -pwd had been given.
  void SetPassword(std::string_view password) { m_options.password = KeepSecret(password); }
  // Back to the state after construction.
  void Reset();

  // The archives of the -f text, parsed and expanded on the first call only.
  const std::vector<std::string>& GetArchsToProcess();
  const std::vector<std::string>& GetNames() const { return m_names; }
  const std::vector<std::string>& GetExcludeList() const { return m_excludes; }
  bool HasRenames() const { return !m_renames.empty(); }

  // Reads -A into the names and -X into the exclude list, and takes the excluded names out.
  void MergeFileLists();
  // Reads -T into the rename map.
  void ProcessRenameList();
  // Appends the old names of the rename map to the names.
  void FillFileList();
  // Normalises the names: separators, one trailing "/", "." to "*", sorted, no duplicates.
  void FormatFilenames();
  // Looks up `oldName` exactly; true iff there, with `newName` set.
  bool FindNewName(const std::string& oldName, std::string& newName) const;
  // True iff this one of the normalised names came from -A or -T and not from the argument vector too: it is
  // literal, "*" and "?" in it are not expanded. Answers after FormatFilenames.
  bool IsLiteralName(const std::string& name) const;

 private:
  void ParseNameStr();
  void AddArchive(const std::string& name);
  // These two tell whether the argument behind the option was used up.
  bool ParseLongOption(const struct LongOption& option, char* next);
  bool ParseLetterGroup(const char* arg, const char* next);
  void ParsePermission(const char* text);
  const char* KeepSecret(std::string_view text);

  static std::unique_ptr<CCmdLine> m_pCmdLine;

  CmdOptions m_options;
  std::list<std::string> m_secrets;   // wiped in the end; options point to them
  std::list<std::string> m_anchored;  // what anchored options point to
  bool m_archivesParsed = false;
  std::vector<std::string> m_archives;
  std::vector<std::string> m_names;
  std::vector<std::string> m_typedNames;    // of the names, those from the argument vector
  std::vector<std::string> m_literalNames;  // from list files only; sorted by FormatFilenames
  std::vector<std::string> m_excludes;      // sorted
  std::map<std::string, std::string> m_renames;
};

}  // namespace tolven
