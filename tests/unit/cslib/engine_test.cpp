// The calls on a handle: argument checks, what a stream may do next, handles, entry points, trace.

#include <string>
#include <vector>

#include "cslib/driver.h"
#include "cslib/handle_table.h"

namespace tolven::test {
namespace {

Bytes Header(std::int32_t length, int algorithm, int parameter) {
  Bytes header(CS_HEAD_SIZE);
  EXPECT_EQ(CsSetHead(header.data(), length, algorithm, parameter), 0);
  return header;
}

// A length field that reads as -50.
Bytes OddLength(int algorithm) {
  Bytes header = Header(0, algorithm, 0x8D);
  header[0] = 0xCE;
  std::fill_n(header.begin() + 1, 3, std::uint8_t{0xFF});
  return header;
}

Bytes With(Bytes bytes, std::size_t at, std::uint8_t value) {
  bytes[at] = value;
  return bytes;
}

TEST(StreamHeader, KeepsItsEightBytes) {
  EXPECT_EQ(Header(0x04030201, 0x1A, 0x102), (Bytes{1, 2, 3, 4, 0x1A, 0x1F, 0x9D, 2}));
  const Bytes header = Header(65536, 0x112, 2);
  EXPECT_EQ(CsGetLen(header.data()), 65536);
  EXPECT_EQ(CsGetVersion(header.data()), 1);
  EXPECT_EQ(CsGetAlgorithm(header.data()), 2);
  for (const std::size_t magic : {5U, 6U}) EXPECT_EQ(CsRGetLen(With(header, magic, 0).data()), -50);
  Bytes untouched(CS_HEAD_SIZE, 7);
  EXPECT_EQ(CsRSetHead(untouched.data(), INT32_MIN, 0x12, 2), -13);
  EXPECT_EQ(untouched, Bytes(CS_HEAD_SIZE, 7));
}

TEST(EngineCalls, RefuseStartsThatCannotWork) {
  struct Row {
    const char* what;
    bool compress;
    int options;
    std::int32_t total;
    Bytes in;
    std::size_t room;
    int expected;
  };
  const Bytes good = Header(5, 0x12, 2), lzc = Header(5, 0x11, 0x8D);
  const Row table[] = {
      {"algorithm 4", true, 4, 5, {1}, 100, -21},
      {"algorithm 6", true, 6, 5, {1}, 100, -21},
      {"LZH without room for a header", true, kLzh, 5, {1}, 7, -10},
      {"LZC without room for a header", true, kLzc, 5, {1}, 7, -10},
      {"framed without room for a header", true, kFramedLzh, 5, {1}, 7, -10},
      {"negative length, LZH", true, kLzh, -1, {1}, 100, -13},
      {"no bytes, LZC", true, kLzc, 0, {}, 100, -13},
      {"no header", false, 0, 0, {}, 100, -11},
      {"7 bytes of header", false, 0, 0, Bytes(good.begin(), good.end() - 1), 100, -11},
      {"algorithm 0", false, 0, 0, Header(5, 0x10, 2), 100, -21},
      {"algorithm 3", false, 0, 0, Header(5, 0x13, 2), 100, -21},
      {"algorithm 7, framed", false, 0, 0, Header(5, 0x1F, 2), 100, -21},
      {"first byte of the magic", false, 0, 0, With(good, 5, 0x1E), 100, -50},
      {"second byte of the magic", false, 0, 0, With(lzc, 6, 0), 100, -50},
      {"length of 2 GiB", false, 0, 0, With(good, 3, 0x80), 100, -13},
      {"length like the code for bad magic", false, 0, 0, OddLength(0x12), 100, -13},
      {"15 bits", false, 0, 0, With(lzc, 7, 0x8F), 100, -51},
      {"31 bits, framed", false, 0, 0, Header(5, 0x19, 0x9F), 100, -51},
      {"8 bits", false, 0, 0, With(lzc, 7, 0x88), 100, -51},
      {"0 bits", false, 0, 0, With(lzc, 7, 0x80), 100, -51},
  };
  for (const Row& row : table) {
    Driver driver;
    // Nothing goes on behind a failure: the second call is one that continues.
    for (int call = 0; call < 2; ++call) {
      const int rc = row.compress
                         ? driver.Compress(static_cast<std::size_t>(row.total), row.in, row.room, row.options)
                         : driver.Decompress(row.in, row.room);
      EXPECT_EQ(rc, row.expected) << row.what;
      EXPECT_EQ(driver.read + driver.written, 0) << row.what;
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
  Driver driver;
  for (const int options : kAllOptions) {
    const Bytes stream = driver.Compress(MakeData(Kind::kRandom, 200), options).out;
    for (const Row& row : table) {
      for (const bool compress : {true, false}) {
        for (const bool start : {true, false}) {
          Bytes in(100), out(100);
          std::int32_t read = 0, written = 0;
          const auto call = [&](const std::uint8_t* from, std::int32_t inLen, std::uint8_t* to,
                                std::int32_t outLen, int init) {
            return compress ? CsRCompress(driver.Handle(), 100, from, inLen, to, outLen, options | init,
                                          &read, &written)
                            : CsRDecompress(driver.Handle(), from, inLen, to, outLen, init, &read, &written);
          };
          std::copy_n(stream.begin(), 20, in.begin());
          if (!start) {
            ASSERT_EQ(call(in.data(), compress ? 0 : 8, out.data(), 100, 1), 3) << row.what;
          }
          std::uint8_t* const outs[] = {nullptr, out.data(), in.data()};
          EXPECT_EQ(call(row.noIn ? nullptr : in.data(), row.inLen, outs[row.out], row.outLen, start ? 1 : 0),
                    row.expected)
              << row.what << (compress ? ", compress " : ", decompress ") << options << start;
          EXPECT_EQ(read + written, 0) << row.what;
        }
      }
    }
  }
}

TEST(EngineCalls, RefuseHandlesThatAreNotOpen) {
  int closed = 0;
  ASSERT_EQ(CsRGetHandle(&closed), 0);
  ASSERT_EQ(CsRCloseHandle(closed), 0);
  for (const int handle : {closed, 299, 1300, 0, -1}) {
    Bytes in = Header(5, 0x12, 2), out(100);
    std::int32_t read = 1, written = 1;
    EXPECT_EQ(CsRCompress(handle, 1, in.data(), 1, out.data(), 100, 1 | kLzh, &read, &written), -81);
    EXPECT_EQ(CsRDecompress(handle, in.data(), 8, out.data(), 100, 1, &read, &written), -81) << handle;
    EXPECT_EQ(read + written, 0);
    EXPECT_EQ(CsTestValidHandle(handle), 0) << handle;
    EXPECT_EQ(CsRCloseHandle(handle), 0);
  }
}

// What the previous call asked for must be there, and a stream goes on in its own direction only.
TEST(EngineCalls, ContinueAsTheStreamDemands) {
  struct Row {
    const char* what;
    bool compress;
    int options;
    std::size_t room, input;  // of the start call, which ends with `first`
    int first;
    std::size_t nextIn, nextRoom;  // of the next one
    int expected;
  };
  const Row table[] = {
      {"LZH wants input", true, kLzh, 100, 1, 3, 0, 100, -3},
      {"LZC waits for input", true, kLzc, 100, 1, 3, 0, 100, 3},
      {"LZH wants room", true, kLzh, 8, 1000, 2, 1000, 0, -2},
      {"LZC wants room", true, kLzc, 9, 1000, 2, 900, 0, -2},
      {"framed wants room", true, kFramedLzc, 9, 1000, 2, 900, 0, -2},
      {"reading LZH wants input", false, kLzh, 100, 8, 3, 0, 100, -3},
      {"reading LZC waits for input", false, kLzc, 100, 8, 3, 0, 100, 3},
      {"reading LZH wants room", false, kLzh, 1, 200, 2, 100, 0, -2},
      {"reading LZC wants room", false, kLzc, 1, 200, 2, 100, 0, -2},
      {"a start without room reads the header", false, kLzc, 0, 200, 2, 100, 0, -2},
      {"LZC codes and no room", false, kLzc, 100, 8, 3, 100, 0, -10},
      {"LZH codes and no room", false, kLzh, 100, 8, 3, 100, 0, 2},
  };
  const Bytes data = MakeData(Kind::kRandom, 1000);
  for (const Row& row : table) {
    Driver driver;
    const Bytes source = row.compress ? data : Driver().Compress(data, row.options).out;
    const auto call = [&](std::size_t at, std::size_t length, std::size_t room) {
      const auto in = std::span(source).subspan(at, length);
      return row.compress ? driver.Compress(1000, in, room, row.options) : driver.Decompress(in, room);
    };
    ASSERT_EQ(call(0, row.input, row.room), row.first) << row.what;
    const auto read = static_cast<std::size_t>(driver.read);
    EXPECT_EQ(call(read, std::min(row.nextIn, source.size() - read), row.nextRoom), row.expected) << row.what;
    if (row.expected < 0) {
      EXPECT_EQ(call(read, 1, 100), row.expected) << row.what << ", again";
    }
    EXPECT_EQ(row.compress ? driver.Decompress(source, 100) : driver.Compress(1000, source, 100, row.options),
              -71)
        << row.what << ", in the other direction";
  }
}

TEST(EngineCalls, StayAtTheEnd) {
  const Bytes data = MakeData(Kind::kText, 5000);
  for (const int options : kAllOptions) {
    Driver driver;
    Bytes stream = driver.Compress(data, options).out;
    EXPECT_EQ(driver.Compress(5000, {}, 6000, options), 1);
    EXPECT_EQ(driver.read + driver.written, 0);

    driver.Restart();
    const bool framed = (options & CS_CHECKSUM) != 0;
    const bool takesAll = options == kLzh;  // what follows an LZH stream counts as its last bytes
    const std::size_t size = stream.size();
    stream.insert(stream.end(), 500, 0xAB);
    EXPECT_EQ(driver.Decompress(stream, 6000), 1);
    EXPECT_EQ(static_cast<std::size_t>(driver.read), takesAll ? stream.size() : size) << options;
    EXPECT_EQ(driver.out, data);
    EXPECT_EQ(driver.Decompress({}, 6000), 1);
    EXPECT_EQ(driver.read + driver.written, 0);
    // More input behind the end: a framed stream has given its buffers back.
    EXPECT_EQ(driver.Decompress(Bytes{1, 2, 3}, 6000), framed ? -71 : 1) << options;
    EXPECT_EQ(driver.written, 0);
  }
}

TEST(EngineCalls, LeaveInputBehindTheDeclaredLength) {
  for (const int options : kAllOptions) {
    Driver driver;
    EXPECT_EQ(driver.Compress(40, Bytes(100, 'a'), 200, options), 1);
    EXPECT_EQ(driver.read, 40) << options;
    EXPECT_EQ(driver.Compress(40, Bytes(2, 'a'), 200, options), (options & CS_CHECKSUM) != 0 ? -71 : 1);
    EXPECT_EQ(driver.read + driver.written, 0);
  }
}

TEST(EngineCalls, StartForgetsAnAbandonedStream) {
  const Bytes other = MakeData(Kind::kRandom, 70000, 5);
  for (const int first : kAllOptions) {
    for (const int second : kAllOptions) {
      for (const Bytes& data : {MakeData(Kind::kText, 3000, 6), Bytes(20000), Bytes(1)}) {
        const Bytes fresh = Driver().Compress(data, second).out;
        Driver driver;
        const Bytes whole = driver.Compress(other, first).out;
        // Left with output pending, with a block pending and a dirty window, and in the middle of the input.
        for (const std::size_t room : {64U, 200000U}) {
          driver.Restart();
          ASSERT_GE(driver.Compress(1 << 20, other, room, first), 2);
          EXPECT_EQ(driver.Compress(data, second).out, fresh) << first << " " << second;
        }
        for (const std::size_t cut : {std::size_t{100}, whole.size() / 2}) {
          driver.Restart();
          ASSERT_GE(driver.Decompress(std::span(whole).first(cut), 64), 2);
          const Outcome back = driver.Decompress(fresh, 300, 500);
          EXPECT_EQ(back.rc, 1);
          EXPECT_EQ(back.out, data) << first << " " << second;
        }
      }
    }
  }
}

// The coders behind the gate do not take its word for it that a stream was started.
TEST(Coders, RefuseToGoOnWithoutAStart) {
  CsInput in;
  CsOutput out;
  const auto coder = [&](auto state, auto run) { EXPECT_EQ(run(*state, in, out), -71); };
  coder(std::make_unique_for_overwrite<LzhCompressState>(), CsRComprLZH);
  coder(std::make_unique_for_overwrite<LzhDecompressState>(), CsRDecomprLZH);
  coder(std::make_unique_for_overwrite<LzcCompressState>(), CsRComprLZC);
  coder(std::make_unique_for_overwrite<LzcDecompressState>(), CsRDecomprLZC);
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

// Opens and closes a slot by its number; whether its context had outlived its last handle, which 0 says.
bool Use(int handle, int times = 1) {
  bool kept = false;
  for (int i = 0; i < times; ++i) {
    const int opened = CsOpenHandle(handle);
    EXPECT_GE(opened, 0);
    kept = opened == 0;
    EXPECT_EQ(CsRCloseHandle(handle), 0);
  }
  return kept;
}

TEST(HandleTable, KeepsTheContextsOfOftenUsedHandles) {
  constexpr int kSlot = CS_FIRST_HANDLE + 500;
  EXPECT_FALSE(Use(kSlot, 41)) << "the slot below holds no context: never kept";
  ASSERT_EQ(CsOpenHandle(kSlot - 1), 1);
  EXPECT_FALSE(Use(kSlot - 2, 4)) << "seldom used";
  Use(kSlot);
  EXPECT_TRUE(Use(kSlot)) << "the next context of the slot stays";
  // With many uses elsewhere its share sinks below 1/128, and the context goes at the next release.
  Use(CS_FIRST_HANDLE + 600, 128 * 60);
  EXPECT_TRUE(Use(kSlot));
  EXPECT_FALSE(Use(kSlot));
  EXPECT_EQ(CsRCloseHandle(kSlot - 1), 0);
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

  // The forms on a handle of one's own, with framing.
  Driver driver;
  ASSERT_EQ(CsRInitCompress(driver.Handle(), stream.data(), 20000, kFramedLzh), 0);
  stream.resize(40000);
  ASSERT_EQ(CsRCompress(driver.Handle(), 20000, data.data(), 20000, stream.data() + 8, 39992, kFramedLzh,
                        &read, &written),
            1);
  ASSERT_EQ(CsRInitDecompress(driver.Handle(), stream.data()), 0);
  EXPECT_EQ(CsRDecompress(driver.Handle(), stream.data() + 8, written, out.data(), 20000, 0, &read, &written),
            1);
  EXPECT_EQ(out, data);
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

int Count(const std::string& text, const std::string& part) {
  int found = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) ++found;
  return found;
}

TEST(Trace, EveryCallThatWorkedHasItsLines) {
  const Bytes data(1000, 'a');
  for (const int options : kAllOptions) {
    Driver driver;
    Bytes stream;
    const std::string packing = Traced(1 | 4, [&] { stream = driver.Compress(data, options, 400, 700).out; });
    const std::string unpacking =
        Traced(1 | 4, [&] { EXPECT_EQ(driver.Decompress(stream, 30, 700).out, data); });
    for (const std::string& text : {packing, unpacking}) {
      const int calls = Count(text, ">>CsR");
      EXPECT_GT(calls, 1);
      for (const char* line : {"    user: inlen = ", "    data: position = ", "    stream: position = ",
                               "    compressed: ", "    uncompressed: ", "<<CsR"}) {
        EXPECT_EQ(Count(text, line), calls) << line << options;
      }
      // The last lines tell of the whole stream.
      EXPECT_GE(Count(text, "    data: position = 1000 "), 1) << options;
    }
  }
  Bytes header(CS_HEAD_SIZE);
  EXPECT_EQ(Traced(16, [&] { EXPECT_EQ(_CsInitComprEx(header.data(), 5, 3, "f.c", 7), 0); }),
            "CS: f.c(7): CsInitCompr:  rc = 0\n");
  EXPECT_EQ(Count(Traced(1, [&] { EXPECT_EQ(_CsInitCompr(header.data(), 5, 4), -21); }),
                  "ERROR: CsRCompress: Unknow Algorithmus."),
            1);
}

}  // namespace
}  // namespace tolven::test
