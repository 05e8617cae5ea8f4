// The entries of include/tolven/archive.h: arguments are looked at here, and nothing is thrown across them.

#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <new>

#include "library/entry_view.h"
#include "library/reader.h"
#include "library/writer.h"
#include "tolven/archive.h"

struct tolven_archive final : tolven::CReader {
  using CReader::CReader;
};

struct tolven_writer final : tolven::CWriter {
  using CWriter::CWriter;
};

namespace {

using namespace tolven;

// In front of everything that needs a handle.
template <typename Handle, typename Body>
std::int32_t Call(Handle* handle, const Body& body) noexcept {
  return handle == nullptr ? TOLVEN_E_ARGUMENT : handle->Call([&] { body(*handle); });
}

template <typename Pointer>
Pointer Given(Pointer pointer) {
  if (pointer == nullptr) throw LibraryError{TOLVEN_E_ARGUMENT, "a null pointer"};
  return pointer;
}

std::span<std::uint8_t> Room(void* buffer, std::size_t size) {
  if (size > 0) Given(buffer);
  return {static_cast<std::uint8_t*>(buffer), size};
}

template <typename Handle>
Handle* MakeHandle(const tolven_options* options) noexcept {
  try {
    return std::make_unique<Handle>(options == nullptr ? tolven_options{} : TakeStructure(options)).release();
  } catch (const LibraryError&) {
    return nullptr;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

// Owned again.
template <typename Handle>
void FreeHandle(Handle* handle) noexcept {
  const std::unique_ptr<Handle> owner(handle);
}

tolven_archive* OwnerOf(const tolven_entry* entry) {
  return entry == nullptr ? nullptr : entry->archive;
}

}  // namespace

extern "C" {

const char* tolven_version(void) {
  return TOLVEN_VERSION;
}

tolven_archive* tolven_new(const tolven_options* options) {
  return MakeHandle<tolven_archive>(options);
}

void tolven_free(tolven_archive* archive) {
  FreeHandle(archive);
}

int32_t tolven_error_code(const tolven_archive* archive) {
  return archive == nullptr ? TOLVEN_E_ARGUMENT : archive->Code();
}

const char* tolven_error_text(const tolven_archive* archive) {
  return archive == nullptr ? "a null pointer" : archive->Text();
}

void tolven_cancel(tolven_archive* archive) {
  if (archive != nullptr) archive->Cancel();
}

int32_t tolven_open(tolven_archive* archive, const char* path) {
  // A pipe in the file's place must not hold the caller up.
  return Call(archive, [&](CReader& reader) {
    reader.Open(Given(path), UniqueFd(open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)));
  });
}

int32_t tolven_open_descriptor(tolven_archive* archive, int descriptor) {
  return Call(archive, [&](CReader& reader) {
    reader.Open("descriptor " + std::to_string(descriptor), UniqueFd(fcntl(descriptor, F_DUPFD_CLOEXEC, 3)));
  });
}

int32_t tolven_open_callbacks(tolven_archive* archive, const tolven_callbacks* callbacks) {
  return Call(archive, [&](CReader& reader) {
    const tolven_callbacks taken = TakeStructure(callbacks);
    Given(taken.read);
    Given(taken.seek);
    reader.Open(taken);
  });
}

int32_t tolven_next(tolven_archive* archive, tolven_entry* entry) {
  bool found = false;
  const std::int32_t code = Call(archive, [&](CReader& reader) {
    found = reader.Next(entry);
    if (found && entry != nullptr) entry->archive = archive;
  });
  return code == TOLVEN_OK && !found ? TOLVEN_END : code;
}

int32_t tolven_rewind(tolven_archive* archive) {
  return Call(archive, [](CReader& reader) { reader.Rewind(); });
}

int64_t tolven_read(tolven_archive* archive, void* buffer, size_t size) {
  std::size_t done = 0;
  const std::int32_t code = Call(archive, [&](CReader& reader) { done = reader.Read(Room(buffer, size)); });
  return code == TOLVEN_OK ? static_cast<std::int64_t>(done) : -1;
}

int32_t tolven_extract_to(tolven_archive* archive, int directory, uint32_t flags) {
  return Call(archive, [&](CReader& reader) { reader.ExtractTo(directory, flags); });
}

int32_t tolven_extract(tolven_archive* archive) {
  return Call(archive, [](CReader& reader) { reader.Extract(); });
}

int32_t tolven_extract_finish(tolven_archive* archive) {
  return Call(archive, [](CReader& reader) { reader.FinishExtraction(); });
}

int32_t tolven_extract_all(tolven_archive* archive, int directory, uint32_t flags) {
  return Call(archive, [&](CReader& reader) { reader.ExtractAll(directory, flags); });
}

int32_t tolven_index(tolven_archive* archive) {
  return Call(archive, [](CReader& reader) { reader.MakeIndex(); });
}

uint64_t tolven_index_count(const tolven_archive* archive) {
  return archive == nullptr ? 0 : archive->IndexCount();
}

int32_t tolven_index_entry(tolven_archive* archive, uint64_t number, tolven_entry* entry) {
  return Call(archive, [&](CReader& reader) {
    reader.ShowIndexed(number, *Given(entry));
    entry->archive = archive;
  });
}

int32_t tolven_index_find(tolven_archive* archive, const char* name, size_t name_size, tolven_entry* entry) {
  return Call(archive, [&](CReader& reader) {
    reader.FindIndexed({Given(name), name_size}, *Given(entry));
    entry->archive = archive;
  });
}

int64_t tolven_entry_pread(const tolven_entry* entry, void* buffer, size_t size, uint64_t offset) {
  tolven_archive* archive = OwnerOf(entry);
  if (archive == nullptr) return -1;
  std::size_t done = 0;
  const std::int32_t code =
      archive->CallBeside([&] { done = archive->ReadIndexed(entry->number, Room(buffer, size), offset); });
  return code == TOLVEN_OK ? static_cast<std::int64_t>(done) : -1;
}

int32_t tolven_entry_check(const tolven_entry* entry) {
  tolven_archive* archive = OwnerOf(entry);
  if (archive == nullptr) return TOLVEN_E_ARGUMENT;
  return archive->CallBeside([&] { archive->CheckIndexed(entry->number); });
}

int32_t tolven_verify(tolven_archive* archive, const tolven_trust* trust, uint32_t flags,
                      tolven_verdict* verdict) {
  tolven_verdict filled{};
  const std::int32_t code = Call(archive, [&](CReader& reader) {
    if (verdict != nullptr) filled = TakeStructure(verdict);
    reader.Verify(trust == nullptr ? tolven_trust{} : TakeStructure(trust), flags, &filled);
  });
  if (verdict == nullptr || filled.struct_size == 0) return code;
  filled.code = code;
  std::memcpy(verdict, &filled, sizeof filled);
  return code;
}

tolven_writer* tolven_writer_new(const tolven_options* options) {
  return MakeHandle<tolven_writer>(options);
}

void tolven_writer_free(tolven_writer* writer) {
  FreeHandle(writer);
}

int32_t tolven_writer_error_code(const tolven_writer* writer) {
  return writer == nullptr ? TOLVEN_E_ARGUMENT : writer->Code();
}

const char* tolven_writer_error_text(const tolven_writer* writer) {
  return writer == nullptr ? "a null pointer" : writer->Text();
}

void tolven_writer_cancel(tolven_writer* writer) {
  if (writer != nullptr) writer->Cancel();
}

int32_t tolven_create(tolven_writer* writer, const char* path) {
  return Call(writer, [&](CWriter& archive) { archive.Create(Given(path)); });
}

int32_t tolven_create_descriptor(tolven_writer* writer, int descriptor) {
  return Call(writer,
              [&](CWriter& archive) { archive.Create(UniqueFd(fcntl(descriptor, F_DUPFD_CLOEXEC, 3))); });
}

int32_t tolven_create_callbacks(tolven_writer* writer, const tolven_callbacks* callbacks) {
  return Call(writer, [&](CWriter& archive) {
    tolven_callbacks taken = TakeStructure(callbacks);
    Given(taken.write);
    taken.seek = nullptr;
    archive.Create(taken);
  });
}

int32_t tolven_add_path(tolven_writer* writer, const char* path, const char* name, size_t name_size) {
  return Call(writer, [&](CWriter& archive) {
    archive.AddPath(Given(path), name == nullptr ? std::string(path) : std::string(name, name_size));
  });
}

int32_t tolven_add_entry(tolven_writer* writer, const tolven_entry* entry,
                         int64_t (*read)(void* context, void* buffer, size_t size), void* context) {
  return Call(writer, [&](CWriter& archive) { archive.AddEntry(TakeStructure(entry), read, context); });
}

int32_t tolven_finish(tolven_writer* writer) {
  return Call(writer, [](CWriter& archive) { archive.Finish(); });
}

void tolven_abort(tolven_writer* writer) {
  Call(writer, [](CWriter& archive) { archive.Abort(); });
}

}  // extern "C"
