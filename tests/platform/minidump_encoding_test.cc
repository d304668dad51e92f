// Byte-exact checks of the dump library's encoders and /proc text reading,
// against buffers written out by hand from the published layouts.
#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/dbghelp/minidump_api.h"
#include "platform/dbghelp/stream_writers.h"
#include "platform/dbghelp/system_files.h"
#include "test_root.h"

namespace {

using namespace mldbghelp;

class Bytes {
 public:
  Bytes& U16(uint16_t v) { return Raw(&v, 2); }
  Bytes& U32(uint32_t v) { return Raw(&v, 4); }
  Bytes& U64(uint64_t v) { return Raw(&v, 8); }
  Bytes& Zeros(size_t n) {
    data.insert(data.end(), n, 0);
    return *this;
  }
  Bytes& Raw(const void* p, size_t n) {
    data.insert(data.end(), static_cast<const uint8_t*>(p), static_cast<const uint8_t*>(p) + n);
    return *this;
  }
  std::vector<uint8_t> data;
};

// Runs one writer into a fresh file and returns what it wrote.
class EncoderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = root_.Path("out.bin");
    fd_ = open(path_.c_str(), O_CREAT | O_TRUNC | O_RDWR, 0600);
    ASSERT_GE(fd_, 0);
  }
  void TearDown() override { close(fd_); }
  std::vector<uint8_t> Written(FileWriter* file) {
    EXPECT_TRUE(file->Flush());
    return testing_support::ReadFileBytes(path_);
  }

  testing_support::TestRoot root_;
  std::string path_;
  int fd_ = -1;
  Arena arena_;
};

TEST_F(EncoderTest, StringIsUtf16WithByteLengthAndTerminator) {
  FileWriter file(fd_, 0, &arena_);
  file.WriteZeros(2);  // strings align to 4
  EXPECT_EQ(file.WriteString("a\xe2\x82\xac\xf0\x9f\x98\x80"), 4u);  // a, euro sign, emoji
  Bytes expected;
  expected.Zeros(4).U32(8).U16('a').U16(0x20ac).U16(0xd83d).U16(0xde00).U16(0);
  EXPECT_EQ(Written(&file), expected.data);
}

TEST_F(EncoderTest, ExceptionStreamFollowsTheLinuxConvention) {
  ProcessSnapshot snapshot(&arena_);
  snapshot.exceptionThreadId = 4321;
  snapshot.signalNumber = 7;  // SIGBUS
  snapshot.signalCode = 2;
  snapshot.faultAddress = 0x7f0012345678;
  DumpState state(&arena_);
  state.exceptionContext = {1232, 0x400};
  FileWriter file(fd_, 0, &arena_);
  Directory entry{};
  ASSERT_TRUE(WriteExceptionStream(snapshot, &file, state, &entry));
  EXPECT_EQ(entry.streamType, 6u);
  EXPECT_EQ(entry.location.dataSize, 168u);
  EXPECT_EQ(entry.location.rva, 0u);
  Bytes expected;
  expected.U32(4321).U32(0).U32(7).U32(2).U64(0).U64(0x7f0012345678).U32(0).U32(0).Zeros(15 * 8).U32(1232).U32(0x400);
  EXPECT_EQ(Written(&file), expected.data);
}

TEST_F(EncoderTest, ThreadListPutsContextsThenStacks) {
  alignas(16) uint8_t stack[32];
  for (size_t i = 0; i < sizeof(stack); ++i) stack[i] = static_cast<uint8_t>(i * 3);
  const uint64_t stackAddress = reinterpret_cast<uint64_t>(stack);
  ProcessSnapshot snapshot(&arena_);
  snapshot.exceptionThreadId = 77;
  ThreadSnapshot* thread = snapshot.threads.Append();
  thread->tid = 77;
  thread->hasContext = true;
  thread->writeFlags = ThreadWriteThread | ThreadWriteStack | ThreadWriteContext;
  thread->stack = {stackAddress, sizeof(stack)};
  thread->context.contextFlags = kContextFull;
  thread->context.rip = 0x401122;
  thread->context.rsp = stackAddress + 8;
  ThreadSnapshot* bare = snapshot.threads.Append();  // no registers: zeroed context
  bare->tid = 78;
  bare->writeFlags = ThreadWriteThread | ThreadWriteContext;

  FileWriter file(fd_, 0, &arena_);
  DumpState state(&arena_);
  Directory entry{};
  ASSERT_TRUE(WriteThreadListStream(snapshot, &file, &state, &entry));
  const uint32_t contexts = 4 + 2 * 48;
  const uint32_t stackRva = contexts + 2 * 1232;
  Bytes expected;
  expected.U32(2);
  expected.U32(77).U32(0).U32(0).U32(0).U64(0).U64(stackAddress).U32(32).U32(stackRva).U32(1232).U32(contexts);
  expected.U32(78).U32(0).U32(0).U32(0).U64(0).U64(0).U32(0).U32(0).U32(1232).U32(contexts + 1232);
  Bytes context;
  context.Zeros(0x30).U32(0x10000f).Zeros(0x98 - 0x34).U64(stackAddress + 8).Zeros(0xf8 - 0xa0).U64(0x401122);
  context.Zeros(1232 - context.data.size());
  expected.Raw(context.data.data(), 1232).Zeros(1232).Raw(stack, sizeof(stack));
  EXPECT_EQ(Written(&file), expected.data);
  EXPECT_EQ(entry.location.dataSize, contexts);
  EXPECT_EQ(state.exceptionContext.rva, contexts);
  ASSERT_EQ(state.memoryBlocks.size(), 1u);  // the memory list points at the same bytes
  EXPECT_EQ(state.memoryBlocks[0].memory.rva, stackRva);
}

TEST(SystemFiles, ReadsLinesOfAnyLengthAndCpuLists) {
  testing_support::TestRoot root;
  std::string longLine = "flags\t\t: " + std::string(5000, 'x');
  testing_support::WriteFileText(root.Path("cpuinfo"), "processor\t: 0\n" + longLine + "\nlast");
  Arena arena;
  mldbghelp::Bytes text;
  ASSERT_TRUE(ReadWholeFile(&arena, root.Path("cpuinfo").c_str(), &text));
  LineReader lines(text);
  mldbghelp::Bytes line;
  std::vector<std::string> seen;
  while (lines.Next(&line)) seen.emplace_back(line.data, line.size);
  EXPECT_EQ(seen, (std::vector<std::string>{"processor\t: 0", longLine, "last"}));
  EXPECT_FALSE(ReadWholeFile(&arena, root.Path("absent").c_str(), &text));

  auto count = [](const char* list) { return CountCpuList({list, std::strlen(list)}); };
  EXPECT_EQ(count("0-3,5,8-11\n"), 9u);
  EXPECT_EQ(count("0\n"), 1u);
  EXPECT_EQ(count("3-1\n"), 0u);
  EXPECT_EQ(count("garbage"), 0u);
}

}  // namespace
