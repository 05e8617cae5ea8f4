// The calls on a handle: argument checks, what a stream may do next, handles, entry points, trace.

#include <string>
#include <thread>
#include <vector>

#include "cslib/engine_driver.h"
#include "cslib/handle_table.h"

namespace tolven {
namespace {

using test::Bytes;
using test::CompressPieces;
using test::DecompressPieces;
using test::Kind;
using test::MakeData;
using test::Outcome;
using test::Step;
using test::TestHandle;

constexpr int kLzh = CS_ALGORITHM_LZH | 2 << CS_LEVEL_SHIFT;
constexpr int kLzc = CS_ALGORITHM_LZC;

Step Compress(int handle, std::int32_t total, const Bytes& in, Bytes& out, int options) {
  Step step;
  step.result = CsRCompress(handle, total, in.data(), static_cast<std::int32_t>(in.size()), out.data(),
                            static_cast<std::int32_t>(out.size()), options, &step.read, &step.written);
  return step;
}

Step Decompress(int handle, const Bytes& in, Bytes& out, int options) {
  Step step;
  step.result = CsRDecompress(handle, in.data(), static_cast<std::int32_t>(in.size()), out.data(),
                              static_cast<std::int32_t>(out.size()), options, &step.read, &step.written);
  return step;
}

Bytes Header(std::int32_t length, int algorithm, int parameter) {
  Bytes header(CS_HEAD_SIZE);
  EXPECT_EQ(CsSetHead(header.data(), length, algorithm, parameter), 0);
  return header;
}

TEST(StreamHeader, KeepsItsEightBytes) {
  EXPECT_EQ(Header(0x04030201, 0x1A, 0x102), (Bytes{1, 2, 3, 4, 0x1A, 0x1F, 0x9D, 2}));
  const Bytes header = Header(65536, 0x112, 2);
  EXPECT_EQ(CsGetLen(header.data()), 65536);
  EXPECT_EQ(CsGetVersion(header.data()), 1);
  EXPECT_EQ(CsGetAlgorithm(header.data()), 2);
  for (const std::size_t magic : {5U, 6U}) {
    Bytes damaged = header;
    damaged[magic] ^= 0x40;
    EXPECT_EQ(CsRGetLen(damaged.data()), -50);
  }
  Bytes untouched(CS_HEAD_SIZE, 7);
  EXPECT_EQ(CsRSetHead(untouched.data(), INT32_MIN, 0x12, 2), -13);
  EXPECT_EQ(untouched, Bytes(CS_HEAD_SIZE, 7));
}

// A length field that reads as -50.
Bytes OddLength(int algorithm) {
  Bytes header = Header(0, algorithm, 0x8D);
  header[0] = 0xCE;
  std::fill_n(header.begin() + 1, 3, std::uint8_t{0xFF});
  return header;
}

struct RefusedStart {
  const char* what;
  bool compress;
  int options;
  std::int32_t total;
  Bytes in;
  std::size_t room;
  int expected;
};

TEST(EngineCalls, RefuseStartsThatCannotWork) {
  const Bytes good = Header(5, 0x12, 2);
  Bytes negative = good;
  negative[3] = 0x80;
  Bytes badMagic = good;
  badMagic[6] = 0;
  const RefusedStart table[] = {
      {"algorithm 4", true, 1 | 4, 5, {1}, 100, -21},
      {"algorithm 6", true, 1 | 6, 5, {1}, 100, -21},
      {"LZH without room for a header", true, 1 | kLzh, 5, {1}, 7, -10},
      {"LZC without room for a header", true, 1 | kLzc, 5, {1}, 7, -10},
      {"framed without room for a header", true, 1 | kLzh | CS_CHECKSUM, 5, {1}, 7, -10},
      {"negative length, LZH", true, 1 | kLzh, -1, {1}, 100, -13},
      {"negative length, framed", true, 1 | kLzh | CS_CHECKSUM, -1, {1}, 100, -13},
      {"no bytes, LZC", true, 1 | kLzc, 0, {}, 100, -13},
      {"7 bytes of header", false, 1, 0, Bytes(good.begin(), good.end() - 1), 100, -11},
      {"algorithm 0", false, 1, 0, Header(5, 0x10, 2), 100, -21},
      {"algorithm 3", false, 1, 0, Header(5, 0x13, 2), 100, -21},
      {"algorithm 7, framed", false, 1, 0, Header(5, 0x1F, 2), 100, -21},
      {"bad magic", false, 1, 0, badMagic, 100, -50},
      {"length of 2 GiB", false, 1, 0, negative, 100, -13},
      {"length like the code for bad magic, LZH", false, 1, 0, OddLength(0x12), 100, -13},
      {"length like the code for bad magic, LZC", false, 1, 0, OddLength(0x11), 100, -13},
      {"length like the code for bad magic, framed", false, 1, 0, OddLength(0x19), 100, -13},
  };
  for (const RefusedStart& row : table) {
    const TestHandle handle;
    Bytes out(row.room);
    const Step step = row.compress ? Compress(handle, row.total, row.in, out, row.options)
                                   : Decompress(handle, row.in, out, row.options);
    EXPECT_EQ(step.result, row.expected) << row.what;
    EXPECT_EQ(step.read, 0) << row.what;
    EXPECT_EQ(step.written, 0) << row.what;
    // Nothing goes on behind a failure.
    const Step next = row.compress ? Compress(handle, row.total, row.in, out, row.options & ~1)
                                   : Decompress(handle, row.in, out, 0);
    EXPECT_EQ(next.result, row.expected) << row.what;
  }
}

TEST(EngineCalls, RefuseHandlesThatAreNotOpen) {
  int closed = 0;
  ASSERT_EQ(CsRGetHandle(&closed), 0);
  ASSERT_EQ(CsRCloseHandle(closed), 0);
  for (const int handle : {closed, 299, 1300, 0, -1}) {
    Bytes out(100);
    EXPECT_EQ(Compress(handle, 1, {1}, out, 1 | kLzh).result, -81) << handle;
    EXPECT_EQ(Decompress(handle, Header(5, 0x12, 2), out, 1).result, -81) << handle;
    EXPECT_EQ(CsTestValidHandle(handle), 0) << handle;
  }
  EXPECT_EQ(CsRCloseHandle(299), 0);
  EXPECT_EQ(CsRCloseHandle(1300), 0);
}

TEST(EngineCalls, RefuseToGoOnWithoutAStart) {
  const TestHandle handle;
  Bytes out(100);
  EXPECT_EQ(Compress(handle, 1, {1}, out, kLzh).result, -71);
  EXPECT_EQ(Decompress(handle, {1}, out, 0).result, -71);
  // A stream of the other direction is no stream to go on with, and takes no harm.
  Bytes stream(1000);
  EXPECT_EQ(Compress(handle, 2, {1}, stream, 1 | kLzh).result, 3);
  EXPECT_EQ(Decompress(handle, {1}, out, 0).result, -71);
  EXPECT_EQ(Compress(handle, 2, {1}, stream, kLzh).result, 1);
}

TEST(EngineCalls, WantWhatTheLastCallAskedFor) {
  const TestHandle handle;
  Bytes none;
  Bytes header(CS_HEAD_SIZE);
  Bytes out(1000);
  // The start call for the header alone leaves no room: 2.
  EXPECT_EQ(Compress(handle, 10, none, header, 1 | kLzh).result, 2);
  EXPECT_EQ(Compress(handle, 10, {1}, none, kLzh).result, -2);

  EXPECT_EQ(Compress(handle, 10, {1}, out, 1 | kLzh).result, 3);
  EXPECT_EQ(Compress(handle, 10, none, out, kLzh).result, -3);
  // LZC does not mind.
  EXPECT_EQ(Compress(handle, 10, {1}, out, 1 | kLzc).result, 3);
  EXPECT_EQ(Compress(handle, 10, none, out, kLzc).result, 3);

  EXPECT_EQ(Decompress(handle, Header(10, 0x12, 2), none, 1).result, 3);
  EXPECT_EQ(Decompress(handle, none, out, 0).result, -3);

  const Bytes data = MakeData(Kind::kZeros, 1000);
  const Bytes stream = CompressPieces(handle, data, kLzh, 1000, 1000).out;
  Bytes little(1);
  EXPECT_EQ(Decompress(handle, stream, little, 1).result, 2);
  EXPECT_EQ(Decompress(handle, none, none, 0).result, -2);
}

TEST(EngineCalls, StayAtTheEnd) {
  const Bytes data = MakeData(Kind::kText, 5000);
  for (const int options : {kLzh, kLzc, kLzh | CS_CHECKSUM, kLzc | CS_CHECKSUM}) {
    const TestHandle handle;
    const Outcome packed = CompressPieces(handle, data, options, 5000, 10000);
    ASSERT_EQ(packed.result, 1);
    Bytes none;
    Bytes out(6000);
    Step step = Compress(handle, 5000, none, out, options);
    EXPECT_EQ(step.result, 1);
    EXPECT_EQ(step.read + step.written, 0);

    Step end = Decompress(handle, packed.out, out, 1);
    EXPECT_EQ(end.result, 1);
    EXPECT_EQ(static_cast<std::size_t>(end.read), packed.out.size());
    step = Decompress(handle, none, out, 0);
    EXPECT_EQ(step.result, 1);
    EXPECT_EQ(step.read + step.written, 0);
    // More input behind the end: a framed stream has given its buffers back.
    step = Decompress(handle, {1, 2, 3}, out, 0);
    EXPECT_EQ(step.result, (options & CS_CHECKSUM) != 0 ? -71 : 1) << options;
    EXPECT_EQ(step.written, 0);
  }
}

TEST(EngineCalls, StartForgetsAnAbandonedStream) {
  const Bytes other = MakeData(Kind::kRandom, 70000, 5);
  const Bytes data = MakeData(Kind::kText, 3000, 6);
  constexpr int kKinds[] = {kLzh, kLzc, kLzh | CS_CHECKSUM, kLzc | CS_CHECKSUM};
  for (const int first : kKinds) {
    for (const int second : kKinds) {
      const TestHandle handle;
      const Bytes whole = CompressPieces(handle, other, first, 70000, 200000).out;
      // Left with output pending, and in the middle of the input.
      for (const std::size_t cut : {std::size_t{100}, whole.size() / 2}) {
        Bytes room(64);
        Compress(handle, 70000, other, room, 1 | first);
        const Outcome packed = CompressPieces(handle, data, second, 1000, 700);
        ASSERT_EQ(packed.result, 1) << first << " " << second;
        ASSERT_GE(Decompress(handle, Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(cut)),
                             room, 1)
                      .result,
                  2);
        const Outcome unpacked = DecompressPieces(handle, packed.out, 300, 500);
        EXPECT_EQ(unpacked.result, 1);
        EXPECT_EQ(unpacked.out, data) << first << " " << second;
      }
    }
  }
}

TEST(EngineCalls, RefuseBuffersThatCannotBeMeant) {
  struct Row {
    const char* what;
    bool noIn;
    std::int32_t inLen;
    int out;  // 0: none, 1: one of its own, 2: the input
    std::int32_t outLen;
    int expected;
  };
  const Row table[] = {
      {"negative input length", false, -1, 1, 50, -11}, {"no input, but a length", true, 20, 1, 50, -11},
      {"negative room", false, 20, 1, -1, -10},         {"no output, but room", false, 20, 0, 50, -15},
      {"output over the input", false, 20, 2, 50, -14},
  };
  const TestHandle handle;
  for (const int options : {kLzh, kLzc, kLzh | CS_CHECKSUM, kLzc | CS_CHECKSUM}) {
    const Bytes stream = CompressPieces(handle, Bytes(200, 'a'), options, 200, 500).out;
    for (const Row& row : table) {
      for (const bool compress : {true, false}) {
        for (const bool start : {true, false}) {
          Bytes in(100), out(100);
          std::int32_t read = 0, written = 0;
          const auto call = [&](const std::uint8_t* from, std::int32_t inLen, std::uint8_t* to,
                                std::int32_t outLen, bool first) {
            return compress
                       ? CsRCompress(handle, 100, from, inLen, to, outLen, options | first, &read, &written)
                       : CsRDecompress(handle, from, inLen, to, outLen, first ? 1 : 0, &read, &written);
          };
          std::copy_n(stream.begin(), 20, in.begin());
          if (!start) {
            ASSERT_EQ(call(in.data(), compress ? 0 : 8, out.data(), 100, true), 3) << row.what;
          }
          std::uint8_t* const outs[] = {nullptr, out.data(), in.data()};
          EXPECT_EQ(call(row.noIn ? nullptr : in.data(), row.inLen, outs[row.out], row.outLen, start),
                    row.expected)
              << row.what << (compress ? ", compress " : ", decompress ") << options << start;
          EXPECT_EQ(read + written, 0) << row.what;
        }
      }
    }
  }
}

// --- The handle table

TEST(HandleTable, GivesOut998HandlesAndThenNone) {
  ASSERT_EQ(CsRCloseAllHandles(), 0);
  std::vector<int> handles;
  int handle = 0;
  int result = 0;
  while ((result = CsRGetHandle(&handle)) == 0) handles.push_back(handle);
  EXPECT_EQ(result, -85);
  EXPECT_EQ(handle, -85);
  ASSERT_EQ(handles.size(), 998U);
  EXPECT_EQ(handles.front(), 302);
  EXPECT_EQ(handles.back(), 1299);
  EXPECT_EQ(CsTestValidHandle(1299), 1);
  // The fixed handles have slots of their own.
  Bytes header(CS_HEAD_SIZE);
  EXPECT_EQ(_CsInitCompr(header.data(), 1, 3), 0);

  EXPECT_EQ(CsRCloseHandle(700), 0);
  EXPECT_EQ(CsSearchNewHandle(), 700);
  EXPECT_EQ(CsRCloseAllHandles(), 0);
  EXPECT_EQ(CsTestValidHandle(302), 0);
  EXPECT_EQ(CsTestValidHandle(CS_COMPR_HANDLE), 1) << "the fixed handles stay open";
}

// Whether the slot's context outlived its last handle: opening the slot by its number says 1 for a new
// context.
bool ContextKept(int handle) {
  const bool kept = CsOpenHandle(handle) == 0;
  CsRCloseHandle(handle);
  return kept;
}

TEST(HandleTable, KeepsTheContextsOfOftenUsedHandles) {
  constexpr int kSlot = CS_FIRST_HANDLE + 500;
  const auto use = [](int handle, int times) {
    for (int i = 0; i < times; ++i) {
      ASSERT_GE(CsOpenHandle(handle), 0);
      ASSERT_EQ(CsRCloseHandle(handle), 0);
    }
  };
  // The slot below holds no context: never kept, however often.
  use(kSlot, 40);
  EXPECT_FALSE(ContextKept(kSlot));
  ASSERT_EQ(CsOpenHandle(kSlot - 1), 1);
  // Seldom used, the slot below lives or not.
  use(kSlot - 2, 3);
  EXPECT_FALSE(ContextKept(kSlot - 2));
  // The next context of the slot stays.
  use(kSlot, 1);
  EXPECT_TRUE(ContextKept(kSlot));

  // With many uses elsewhere its share sinks below 1/128, and the context goes at the next release.
  use(CS_FIRST_HANDLE + 600, 128 * 60);
  ASSERT_EQ(CsOpenHandle(kSlot), 0);
  ASSERT_EQ(CsRCloseHandle(kSlot), 0);
  EXPECT_FALSE(ContextKept(kSlot));
  CsRCloseHandle(kSlot - 1);
}

TEST(HandleTable, UseCountsStartAnewBeforeTheyRunOver) {
  HandleUses uses;
  uses.sum = uses.ofSlot[5] = 0x7FFFFFFF;
  uses.Count(5);
  EXPECT_EQ(uses.ofSlot[5], 0x80000000U);
  EXPECT_TRUE(uses.Often(5));
  uses.Count(7);
  EXPECT_EQ(uses.ofSlot[5], 0U);
  EXPECT_EQ(uses.ofSlot[7], 1U);
  EXPECT_EQ(uses.sum, 1U);
}

TEST(HandleTable, AKeptContextStartsClean) {
  constexpr int kSlot = CS_FIRST_HANDLE + 800;
  ASSERT_GE(CsOpenHandle(kSlot - 1), 0);
  Bytes out(1000);
  for (int i = 0; i < 200; ++i) {
    ASSERT_GE(CsOpenHandle(kSlot), 0);
    EXPECT_EQ(Compress(kSlot, 10, {1}, out, kLzh).result, -71);
    EXPECT_EQ(Compress(kSlot, 10, {1}, out, 1 | kLzh).result, 3);
    ASSERT_EQ(CsRCloseHandle(kSlot), 0);
  }
  CsRCloseHandle(kSlot - 1);
}

TEST(HandleTable, ThreadsWorkSideBySide) {
  std::vector<std::thread> threads;
  std::vector<int> good(4);
  for (std::size_t n = 0; n < good.size(); ++n) {
    threads.emplace_back([n, &good] {
      const Bytes data = MakeData(Kind::kText, 3000, static_cast<std::uint32_t>(n));
      for (int round = 0; round < 40; ++round) {
        const TestHandle handle;
        const Outcome packed = CompressPieces(handle, data, round % 2 == 0 ? kLzh : kLzc, 3000, 6000);
        good[n] += DecompressPieces(handle, packed.out, 6000, 4000).out == data ? 1 : 0;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(good, std::vector<int>(4, 40));
}

// --- Entry points and trace

TEST(EntryPoints, MakeAndReadAStream) {
  const Bytes data = MakeData(Kind::kText, 20000);
  Bytes stream(40000);
  std::int32_t read = 0, written = 0;
  ASSERT_EQ(CsComprEx(20000, data.data(), 20000, stream.data(), 40000, 3, &read, &written), 1);
  EXPECT_EQ(read, 20000);
  stream.resize(static_cast<std::size_t>(written));

  // As the reader of older archives does it: the header, then pieces of 8192 bytes of output.
  ASSERT_EQ(_CsInitDecompr(stream.data()), 0);
  Bytes out;
  std::size_t at = CS_HEAD_SIZE;
  int result = 2;
  while (result == 2) {
    Bytes room(8192);
    result = CsDecomprEx(stream.data() + at, static_cast<std::int32_t>(stream.size() - at), room.data(), 8192,
                         0, &read, &written);
    at += static_cast<std::size_t>(read);
    out.insert(out.end(), room.begin(), room.begin() + written);
  }
  EXPECT_EQ(result, 1);
  EXPECT_EQ(out, data);

  Bytes header(CS_HEAD_SIZE);
  EXPECT_EQ(_CsInitCompr(header.data(), -1, 3), -13);
  header[5] = 0;
  EXPECT_EQ(_CsInitDecompr(header.data()), -21);
}

std::string g_lines;

// What the calls print with the given level.
template <typename Calls>
std::string Traced(int level, Calls calls) {
  g_lines.clear();
  CsSetTrace(level, [](const char* text) { g_lines += text; });
  calls();
  CsSetTrace(0, nullptr);
  return g_lines;
}

TEST(Trace, EveryCallThatWorkedHasItsLines) {
  const Bytes data(1000, 'a');
  const auto count = [](const std::string& text, const std::string& part) {
    int found = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) ++found;
    return found;
  };
  for (const int options : {kLzh, kLzc, kLzh | CS_CHECKSUM, kLzc | CS_CHECKSUM}) {
    const TestHandle handle;
    Bytes stream;
    const std::string packing =
        Traced(1 | 4, [&] { stream = CompressPieces(handle, data, options, 400, 700).out; });
    const std::string unpacking =
        Traced(1 | 4, [&] { EXPECT_EQ(DecompressPieces(handle, stream, 30, 700).out, data); });
    for (const std::string& text : {packing, unpacking}) {
      const int calls = count(text, ">>CsR");
      EXPECT_GT(calls, 1);
      for (const char* line : {"    user: inlen = ", "    data: position = ", "    stream: position = ",
                               "    compressed: ", "    uncompressed: ", "<<CsR"}) {
        EXPECT_EQ(count(text, line), calls) << line << options;
      }
      // The last lines tell of the whole stream.
      EXPECT_GE(count(text, "    data: position = 1000 "), 1) << options;
    }
  }
  Bytes header(CS_HEAD_SIZE);
  EXPECT_NE(Traced(16, [&] { _CsInitComprEx(header.data(), 5, 3, "f.c", 7); })
                .find("CS: f.c(7): CsInitCompr:  rc = 0\n"),
            std::string::npos);
  EXPECT_NE(
      Traced(1, [&] { _CsInitCompr(header.data(), 5, 4); }).find("ERROR: CsRCompress: Unknow Algorithmus."),
      std::string::npos);
}

}  // namespace
}  // namespace tolven
