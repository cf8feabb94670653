// String buffers' exhaustion and C string literal output decoded back to
// the original bytes. Reading lines (a last line without a newline comes
// with null), writing through bounded cursors and the buffers' growth are
// checked against std::string models in fuzz/strbuf_fuzz.cpp.
#include <cstring>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "support/counting_context.h"
#include "kt/containers.h"

namespace {

using kttest::Contexts;

TEST(Strbuf, ExhaustionRaisesAndKeepsTheBuffer) {
  Contexts c;
  kt_dsbuffer buffer;
  kt_initialize_dsbuffer(&buffer, &c.memory, 2);
  kt_dsbputsn(&buffer, "ab", 2);
  kttest::Ledger().failAfter = 0;
  EXPECT_EQ(c.Catch([&] { kt_dsbputc('c', &buffer); }), 0x20001);
  kttest::Ledger().failAfter = -1;
  EXPECT_EQ(std::string(buffer.data, buffer.length), "ab");
  EXPECT_EQ(buffer.capacity, 2u);
  kt_clear_dsbuffer(&buffer);
  EXPECT_EQ(buffer.data, nullptr);
  EXPECT_EQ(c.LiveBlocks(), 0u);
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
