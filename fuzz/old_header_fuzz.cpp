// Archives of the older format: the text header in pieces, then a test of the whole archive.
#include "fuzz/program.h"
#include "oldarchive/old_header.h"
#include "oldarchive/old_paths.h"

namespace {

using tolven::HeaderParser;

using namespace tolven::fuzz;

// However the header arrives, it says the same; and no name leads out of the extraction directory.
void CheckHeader(Bytes bytes) {
  HeaderParser whole;
  HeaderParser pieces;
  const HeaderParser::State state = whole.Feed(bytes);
  const std::size_t split = bytes.empty() ? 0 : bytes[0] % bytes.size();
  pieces.Feed(bytes.first(split));
  Require(pieces.Feed(bytes.subspan(split)) == state);
  if (state != HeaderParser::State::kDone) return;
  Require(pieces.Entries().DataStart() == whole.Entries().DataStart());
  tolven::EntryWalk other(pieces.Entries());
  for (tolven::EntryWalk walk(whole.Entries()); walk.Next();) {
    tolven::FileInfo& info = walk.Info();
    Require(other.Next() && other.Info().name == info.name && other.Info().position == info.position);
    info.target = tolven::TransformPath({}, info.name);
    std::string path;
    if (tolven::CreateFilename({}, info, path)) Require(StaysBelow(path));
  }
}

}  // namespace

void tolven::fuzz::Run(Input input) {
  CheckHeader(input.Rest());
  const MemoryFile archive(input.Rest());
  RunProgram("-df\t" + archive.Name());
}
