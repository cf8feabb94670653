// String buffers' and buffer cursors' boundary cases, and C string literal
// output decoded back to the original bytes. Random operation sequences
// against std::string live in fuzz/strbuf_fuzz.cpp.
#include <cstring>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "support/counting_context.h"
#include "kt/containers.h"

namespace {

using kttest::Contexts;

TEST(Strbuf, DynamicBufferEdges) {
  Contexts c;
  kt_dsbuffer buffer;
  kt_initialize_dsbuffer(&buffer, &c.memory, 4);
  EXPECT_EQ(kt_dsbputs("", &buffer), 0);
  EXPECT_EQ(buffer.length, 0u);
  EXPECT_EQ(kt_dsbputsn(&buffer, "abcd", 4), 4);
  EXPECT_EQ(buffer.capacity, 4u);
  EXPECT_EQ(kt_dsbputc(0x1FF, &buffer), 0xFF);
  EXPECT_EQ(buffer.capacity, 8u);
  EXPECT_EQ(kt_dsbputsn(&buffer, "x", -3), 0);
  EXPECT_EQ(buffer.length, 5u);
  kt_clear_dsbuffer(&buffer);
  // A zero capacity still grows safely.
  kt_initialize_dsbuffer(&buffer, &c.memory, 0);
  EXPECT_EQ(buffer.data, nullptr);
  EXPECT_EQ(kt_dsbputc('q', &buffer), 'q');
  EXPECT_EQ(kt_dsbputsn(&buffer, "rst", 3), 3);
  EXPECT_EQ(std::string(buffer.data, buffer.length), "qrst");
  kt_clear_dsbuffer(&buffer);
  // Exhaustion raises through the memory context and keeps the buffer.
  kt_initialize_dsbuffer(&buffer, &c.memory, 2);
  kt_dsbputsn(&buffer, "ab", 2);
  kttest::Ledger().failAfter = 0;
  EXPECT_EQ(c.Catch([&] { kt_dsbputc('c', &buffer); }), 0x20001);
  kttest::Ledger().failAfter = -1;
  EXPECT_EQ(std::string(buffer.data, buffer.length), "ab");
  kt_clear_dsbuffer(&buffer);
  EXPECT_EQ(c.LiveBlocks(), 0u);
}

kt_buffer_cursor Cursor(std::string& text) { return {&text[0], text.size()}; }

TEST(Strbuf, LineReading) {
  std::string text = "ab\nc";
  kt_buffer_cursor cursor = Cursor(text);
  char line[10];
  EXPECT_EQ(kt_bgets(line, 10, &cursor), line);
  EXPECT_STREQ(line, "ab\n");
  EXPECT_EQ(kt_bgets(line, 10, &cursor), nullptr);
  EXPECT_STREQ(line, "c");  // the partial last line is still delivered
  EXPECT_EQ(kt_bgets(line, 10, &cursor), nullptr);
  EXPECT_STREQ(line, "");

  // Size limits: size - 1 bytes, and the newline only with room for the NUL.
  std::string longer = "abcdef\n";
  cursor = Cursor(longer);
  char small[4];
  EXPECT_EQ(kt_bgets(small, 4, &cursor), small);
  EXPECT_STREQ(small, "abc");
  EXPECT_EQ(kt_bgets(small, 4, &cursor), small);
  EXPECT_STREQ(small, "def");
  EXPECT_EQ(kt_bgets(small, 4, &cursor), small);
  EXPECT_STREQ(small, "\n");
  EXPECT_EQ(cursor.remaining, 0u);
  EXPECT_EQ(kt_bgets(small, 1, &cursor), small);  // only the terminator
  EXPECT_STREQ(small, "");
  EXPECT_EQ(kt_bgets(small, 0, &cursor), nullptr);
}

TEST(Strbuf, BoundedWriting) {
  char storage[8] = "-------";
  kt_buffer_cursor cursor{storage, 3};
  EXPECT_EQ(kt_bputs("hello", &cursor), -1);
  EXPECT_EQ(std::string(storage, 4), "hel-");
  EXPECT_EQ(cursor.remaining, 0u);
  EXPECT_EQ(kt_bputsn(&cursor, "xy", 2), -1);
  EXPECT_EQ(kt_bputsn(&cursor, "xy", 0), 0);
  EXPECT_EQ(kt_bputs("", &cursor), 1);

  kt_buffer_cursor sink{storage, 7};
  EXPECT_EQ(kt_bputsn(&sink, "abcd", 4), 4);
  EXPECT_EQ(kt_bputsn(&sink, "efgh", 4), 3);
  EXPECT_EQ(std::string(storage, 7), "abcdefg");
  EXPECT_EQ(storage[7], '\0');  // never past the end
  // As an output sink of the putsn shape.
  kt_putsn_function putsn = kt_bputsn;
  kt_buffer_cursor again{storage, 2};
  EXPECT_EQ(putsn(&again, "zz", 2), 2);

  int32_t items[3] = {1, 2, 3};
  char block[10];
  kt_buffer_cursor blocks{block, sizeof block};
  EXPECT_EQ(kt_bwrite(items, sizeof(int32_t), 3, &blocks), 2u);  // whole items only
  EXPECT_EQ(blocks.remaining, 2u);
  EXPECT_EQ(kt_bwrite(items, 0, 3, &blocks), 0u);
}

TEST(Strbuf, SpanScanning) {
  std::string text = "  \t x1 y";
  kt_buffer_cursor cursor = Cursor(text);
  EXPECT_EQ(kt_bufspn(&cursor, " \t"), 4u);
  EXPECT_EQ(kt_bufcspn(&cursor, "x"), 4u);
  EXPECT_EQ(kt_bufcspn(&cursor, "q"), text.size());
  EXPECT_EQ(kt_skip_white_space(&cursor), 0);
  EXPECT_EQ(*cursor.position, 'x');
  // A NUL byte is a member of every set.
  std::string nul("a\0b", 3);
  kt_buffer_cursor withNul = Cursor(nul);
  EXPECT_EQ(kt_bufspn(&withNul, "a"), 2u);  // a, then NUL; b stops it
  EXPECT_EQ(kt_bufcspn(&withNul, "b"), 1u);
  kt_buffer_cursor empty{nullptr, 0};
  EXPECT_EQ(kt_bufspn(&empty, "a"), 0u);
  EXPECT_EQ(kt_skip_white_space(&empty), 1);
  std::string spaces = " \n\r\f\v";
  kt_buffer_cursor allSpace = Cursor(spaces);
  EXPECT_EQ(kt_skip_white_space(&allSpace), 1);
  EXPECT_EQ(allSpace.remaining, 0u);
}

int AppendPut(const char* text, void* stream) {
  *static_cast<std::string*>(stream) += text;
  return 0;
}

// Decodes a C literal as a C compiler would (the inverse of the writer).
std::string Decode(const std::string& literal) {
  EXPECT_GE(literal.size(), 2u);
  EXPECT_EQ(literal.front(), '"');
  EXPECT_EQ(literal.back(), '"');
  std::string out;
  for (size_t i = 1; i + 1 < literal.size(); ++i) {
    char ch = literal[i];
    if (ch != '\\') {
      out.push_back(ch);
      continue;
    }
    char e = literal[++i];
    const std::string letters = "n\"\\rtabfv";
    const std::string bytes = "\n\"\\\r\t\a\b\f\v";
    size_t k = letters.find(e);
    if (k != std::string::npos) {
      out.push_back(bytes[k]);
    } else if (e == '0' && (i + 1 >= literal.size() - 1 || !isdigit(literal[i + 1]))) {
      out.push_back('\0');
    } else {
      int v = std::stoi(literal.substr(i, 3), nullptr, 8);
      out.push_back(static_cast<char>(v));
      i += 2;
    }
  }
  return out;
}

TEST(Strbuf, CStringOutput) {
  std::string printed;
  kt_output_c_string(AppendPut, &printed, "a\tb\xc8");
  EXPECT_EQ(printed, "\"a\\tb\\310\"");
  printed.clear();
  kt_output_c_string_with_length(AppendPut, &printed, "x\0y\x7f\x01", 5);
  EXPECT_EQ(printed, "\"x\\0y\x7f\\001\"");
  // Round trip over every byte value in random order and long runs.
  std::mt19937 rng(71);
  for (int round = 0; round < 50; ++round) {
    std::string bytes(rng() % 700, '\0');
    for (char& ch : bytes)
      ch = static_cast<char>(rng());
    // NUL is written as a two-character escape, so a NUL followed by a digit
    // reads back as an octal escape; such inputs have no unique decoding.
    for (size_t i = 0; i + 1 < bytes.size(); ++i)
      if (bytes[i] == '\0' && isdigit(static_cast<unsigned char>(bytes[i + 1])))
        bytes[i + 1] = 'x';
    printed.clear();
    kt_output_c_string_with_length(AppendPut, &printed, bytes.data(), bytes.size());
    ASSERT_EQ(Decode(printed), bytes);
    for (size_t i = 1; i + 1 < printed.size(); ++i)
      ASSERT_FALSE(static_cast<unsigned char>(printed[i]) >= 128 ||
                   static_cast<unsigned char>(printed[i]) < 32);
  }
  // The hooks wrap each escape sequence and nothing else.
  auto open = [](kt_c_string_put_function put, void* stream, void*) { put("<", stream); };
  auto close = [](kt_c_string_put_function put, void* stream, void*) { put(">", stream); };
  printed.clear();
  kt_output_c_string_with_hooks(AppendPut, &printed, "a\nb\x02", 4, open, close, nullptr);
  EXPECT_EQ(printed, "\"a<\\n>b<\\002>\"");
}

}  // namespace
