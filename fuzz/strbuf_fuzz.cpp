// Dynamic string buffers and buffer cursors, reading (kt_bgets, span
// scanning, white space) and writing (kt_bputs, kt_bputsn, kt_bwrite),
// against std::string models under operations decoded from the input.
//
// Checked after every step: results, the buffer's bytes and its capacity
// (doubling from the initial one, or from 1), the cursors' positions and
// the written bytes; cursors and kt_bgets destinations cover memory of
// exactly their size, so an access past it is caught by the sanitizer.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "kt/containers.h"
#include "kt/contexts.h"

namespace {

void Fail(const char* what) {
  std::fprintf(stderr, "strbuf_fuzz: %s\n", what);
  std::abort();
}

// A cursor over an exact-size copy of `text`, and its model position.
struct Source {
  std::vector<char> bytes;
  kt_buffer_cursor cursor;
  size_t at = 0;
  std::string rest() const { return std::string(bytes.data() + at, bytes.size() - at); }
};

// fgets semantics: up to size - 1 bytes, the newline included when it comes
// within them; null when the input ran out before a newline or the limit.
void ReadLine(FuzzedDataProvider& in, Source& s) {
  int size = in.ConsumeIntegralInRange(-1, 20);
  std::vector<char> line(size > 0 ? size : 1, '#');
  char* got = kt_bgets(line.data(), size, &s.cursor);
  if (size <= 0) {
    if (got != nullptr) Fail("bgets with no room");
    return;
  }
  std::string rest = s.rest();
  size_t limit = static_cast<size_t>(size) - 1, newline = rest.find('\n');
  bool lineEnds = newline != std::string::npos && newline < limit;
  size_t take = lineEnds ? newline + 1 : std::min(limit, rest.size());
  bool delivered = lineEnds || rest.size() >= limit;
  if ((got != nullptr) != delivered || std::memcmp(line.data(), rest.data(), take) != 0 ||
      line[take] != '\0')
    Fail("bgets");
  s.at += take;
}

size_t Span(const std::string& rest, const std::string& set, bool inSet) {
  size_t n = 0;
  while (n < rest.size() && (rest[n] == '\0' || set.find(rest[n]) != std::string::npos) == inSet)
    ++n;
  return n;
}

// The writing cursor over `room` bytes: whatever fits of each piece, and
// -1 from kt_bputs and kt_bputsn when it was cut or nothing fitted.
void Write(FuzzedDataProvider& in, kt_buffer_cursor& sink, std::string& written, size_t room) {
  std::string piece = in.ConsumeRandomLengthString(12);
  size_t left = room - written.size(), item = in.ConsumeIntegralInRange<size_t>(0, 3);
  int op = in.ConsumeIntegralInRange(0, 2);
  if (op == 0)
    piece = piece.c_str();
  size_t fit = std::min(piece.size(), left);
  if (op == 0 && kt_bputs(piece.c_str(), &sink) != (fit == piece.size() ? 1 : -1)) Fail("bputs");
  int n = static_cast<int>(piece.size());
  if (op == 1 && kt_bputsn(&sink, piece.data(), n) != (n && !fit ? -1 : static_cast<int>(fit)))
    Fail("bputsn");
  if (op == 2) {  // whole items only; an item size of 0 writes nothing
    size_t count = item ? piece.size() / item : 5, items = item ? std::min(count, left / item) : 0;
    if (kt_bwrite(piece.data(), item, count, &sink) != items) Fail("bwrite");
    fit = items * item;
  }
  written.append(piece, 0, fit);
  if (sink.remaining != room - written.size()) Fail("writing cursor");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  kt_dsbuffer buffer;
  uint64_t capacity = in.ConsumeIntegralInRange<uint64_t>(0, 8);
  kt_initialize_dsbuffer(&buffer, ktGetMemoryContext(), capacity);
  std::string model;
  Source source;
  std::string text = in.ConsumeRandomLengthString(200);
  source.bytes.assign(text.begin(), text.end());
  source.cursor = {source.bytes.data(), source.bytes.size()};
  size_t room = in.ConsumeIntegralInRange<size_t>(0, 40);
  std::vector<char> sinkBytes(room);
  kt_buffer_cursor sink{sinkBytes.data(), room};
  std::string written;
  while (in.remaining_bytes() > 0) {
    int op = in.ConsumeIntegralInRange(0, 8);
    std::string piece = in.ConsumeRandomLengthString(24);
    if (op == 0) {
      int c = in.ConsumeIntegral<int>();
      if (kt_dsbputc(c, &buffer) != (c & 0xFF)) Fail("dsbputc");
      model.push_back(static_cast<char>(c));
    } else if (op == 1) {
      int count = static_cast<int>(piece.size()) - in.ConsumeIntegralInRange(0, 2);
      if (kt_dsbputsn(&buffer, piece.data(), count) != std::max(count, 0)) Fail("dsbputsn");
      model.append(piece, 0, std::max(count, 0));
    } else if (op == 2) {
      if (kt_dsbputs(piece.c_str(), &buffer) != (piece.c_str()[0] ? 1 : 0)) Fail("dsbputs");
      model += piece.c_str();
    } else if (op == 3) {
      size_t item = in.ConsumeIntegralInRange<size_t>(1, 3), count = piece.size() / item;
      if (kt_dsbwrite(piece.data(), item, count, &buffer) != count) Fail("dsbwrite");
      model.append(piece, 0, item * count);
    } else if (op == 4) {
      model.resize(in.ConsumeIntegralInRange<size_t>(0, model.size()));
      kt_dsb_shrink_buffer(&buffer, model.size());
    } else if (op == 5) {
      ReadLine(in, source);
    } else if (op == 6) {
      bool inSet = in.ConsumeBool();
      uint64_t n = inSet ? kt_bufspn(&source.cursor, piece.c_str())
                         : kt_bufcspn(&source.cursor, piece.c_str());
      if (n != Span(source.rest(), piece.c_str(), inSet)) Fail("span");
    } else if (op == 7) {
      Write(in, sink, written, room);
    } else {
      std::string rest = source.rest();
      size_t n = 0;
      while (n < rest.size() && rest[n] > 0 && std::isspace(rest[n]))
        ++n;
      source.at += n;
      if (kt_skip_white_space(&source.cursor) != (source.at == source.bytes.size() ? 1 : 0))
        Fail("skip_white_space");
    }
    if (model.size() > capacity)  // growth doubles, from 1 when the capacity was 0
      for (capacity = capacity ? capacity : 1; capacity < model.size();)
        capacity *= 2;
    if (buffer.length != model.size() || buffer.capacity != capacity ||
        (!model.empty() && std::memcmp(buffer.data, model.data(), model.size()) != 0) ||
        source.cursor.position != source.bytes.data() + source.at ||
        source.cursor.remaining != source.bytes.size() - source.at ||
        std::string(sinkBytes.data(), written.size()) != written)
      Fail("state after the step");
  }
  kt_clear_dsbuffer(&buffer);
  return 0;
}
