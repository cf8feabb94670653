// Hyperlink annotations: the module-63 texts, the links as written and as
// printed to the console hook, and the hot-links setting's life with the
// virtual-machine session it belongs to.
#include "kt/annotations.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "kt/contexts.h"
#include "kt/vmcontext.h"
#include "support/console_capture.h"

namespace {

int Append(void* data, const char* text, int length) {
  static_cast<std::string*>(data)->append(text, static_cast<size_t>(length));
  return length;
}

// A context entered on this thread, running a session, for the scope.
class Session {
public:
  Session() : vm_(ktNewVmContext()) {
    ktEnterVmContext(vm_);
    ktStartVmSession(vm_);
  }
  ~Session() {
    ktEndVmSession(vm_);
    ktLeaveVmContext();
    ktDeleteVmContext(vm_);
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  kt_vm_context* vm() const { return vm_; }

private:
  kt_vm_context* vm_;
};

class OwnMessages : public ::testing::Test {
protected:
  void SetUp() override {
    int status = 0;
    ASSERT_EQ(kt_initialize_message_context(&status, &mc, ktMalloc, ktRealloc), 0);
    ASSERT_EQ(ktInitializeFileLineColumnMessageContext(&mc), 0);
  }
  void TearDown() override { kt_clear_message_context(&mc, ktFree); }
  kt_message_context mc{};
};

TEST_F(OwnMessages, TableTextsAndMnemonics) {
  const struct {
    int code;
    const char* mnemonic;
    const char* text;
  } table[] = {
      {0x3F0001, "HREF_FILE_LINE_COLUMN", "<a href=\"zentra: opentoline('%s',%ld,%ld)\">"},
      {0x3F0002, "HREF_DOC_FILE_KEY", "<a href=\"zentra: showhelp([helproot '%s'],'%s')\">"},
      {0x3F0003, "HREF_END", "</a>"},
      {0x3F0004, "LINENO_NO_ANONYMOUS", "%d"},
      {0x3F0005, "LINENO_ONE_ANONYMOUS", "%d@"},
      {0x3F0006, "LINENO_MANY_ANONYMOUS", "%d@%d"},
  };
  for (const auto& m : table) {
    EXPECT_STREQ(kt_get_primary_message(&mc, m.code), m.text);
    EXPECT_STREQ(kt_get_message_mnemonic(&mc, m.code), m.mnemonic);
  }
  EXPECT_EQ(kt_get_primary_message(&mc, 0x3F0007), nullptr) << "six messages only";
  EXPECT_EQ(ktInitializeFileLineColumnMessageContext(&mc), 0) << "the same table again";
  char text[32];
  kt_sprintm(&mc, text, sizeof text, KT_LINENO_MANY_ANONYMOUS, 12, 3);
  EXPECT_STREQ(text, "12@3");
}

// File names are single-quoted inside the link: their own quotes double.
TEST_F(OwnMessages, HeaderDoublesQuotesOfTheFileName) {
  const struct {
    const char* name;
    long line, column;
    const char* link;
  } cases[] = {
      {"/src/a.m", 12, 5, "<a href=\"zentra: opentoline('/src/a.m',12,5)\">"},
      {"it's.m", 1, 1, "<a href=\"zentra: opentoline('it''s.m',1,1)\">"},
      {"''", 3, 9, "<a href=\"zentra: opentoline('''''',3,9)\">"},
      {"100%d \"x\".m", 7, 2, "<a href=\"zentra: opentoline('100%d \"x\".m',7,2)\">"},
      {nullptr, 4, 1, "<a href=\"zentra: opentoline('',4,1)\">"},
      {"big", 4000000000L, 4000000001L,
       "<a href=\"zentra: opentoline('big',4000000000,4000000001)\">"},
  };
  for (const auto& c : cases) {
    std::string out;
    int written = ktPutAnnotationHeader(&mc, Append, &out, c.name, c.line, c.column);
    EXPECT_EQ(out, c.link);
    EXPECT_EQ(written, static_cast<int>(out.size()));
  }
  std::string out;
  EXPECT_EQ(ktPutAnnotationTrailer(&mc, Append, &out), 4);
  EXPECT_EQ(out, "</a>");
}

TEST(HotLinks, PrintOnlyWithHotLinksInASessionAndANonZeroLine) {
  kttest::ConsoleCapture console;
  ktSetHotLinks(true);  // no session: ignored
  ktPrintAnnotationHeader("a.m", 1, 1);
  ktPrintAnnotationTrailer(1);
  {
    Session session;
    ktPrintAnnotationHeader("a.m", 1, 1);
    ktPrintAnnotationTrailer(1);
    EXPECT_EQ(console.text, "") << "hot links start off";
    ktSetHotLinks(true);
    ktPrintAnnotationHeader("a.m", 0, 3);
    ktPrintAnnotationTrailer(0);
    EXPECT_EQ(console.text, "") << "line 0 and flag 0 print nothing";
    ktPrintAnnotationHeader("it's.m", 3, 4);
    ktPrintf("it's.m:3:4");
    ktPrintAnnotationTrailer(1);
    EXPECT_EQ(console.text, "<a href=\"zentra: opentoline('it''s.m',3,4)\">it's.m:3:4</a>");
    ktSetHotLinks(false);
    ktPrintAnnotationHeader("a.m", 1, 1);
    ktPrintAnnotationTrailer(1);
  }
  ktPrintAnnotationHeader("a.m", 1, 1);
  EXPECT_EQ(console.text, "<a href=\"zentra: opentoline('it''s.m',3,4)\">it's.m:3:4</a>");
}

// Printing registers the table in the installed message context once, not
// once per link: a single removal makes its codes unknown again.
TEST(HotLinks, PrintingRegistersTheTableOnce) {
  kttest::ConsoleCapture console;
  Session session;
  ktSetHotLinks(true);
  for (int i = 0; i < 3; ++i) ktPrintAnnotationHeader("a.m", 1, 1);
  int status = 0;
  kt_message_context* mc = ktGetMessageContext();
  kt_message_table module63 = {6, 63, nullptr, nullptr, nullptr, ""};  // removal reads the module
  EXPECT_EQ(kt_remove_primary_message_table(&status, mc, &module63), 0);
  EXPECT_EQ(kt_get_primary_message(mc, KT_HREF_END), nullptr);
  ktPrintAnnotationTrailer(1);
  EXPECT_EQ(console.text.substr(console.text.size() - 4), "</a>") << "registered again";
}

TEST(HotLinks, TheSettingBelongsToTheSession) {
  EXPECT_FALSE(ktGetHotLinks()) << "no context";
  kt_vm_context* vm = ktNewVmContext();
  ktEnterVmContext(vm);
  EXPECT_FALSE(ktGetHotLinks()) << "a context without a session";
  ktSetHotLinks(true);
  ktStartVmSession(vm);
  EXPECT_FALSE(ktGetHotLinks()) << "set before the session: ignored";
  ktSetHotLinks(true);
  EXPECT_TRUE(ktGetHotLinks());
  bool otherThread = true;
  std::thread([&] { otherThread = ktGetHotLinks(); }).join();
  EXPECT_FALSE(otherThread) << "a thread outside the context";

  {  // A second context has its own setting; leaving it restores ours.
    Session inner;
    EXPECT_FALSE(ktGetHotLinks());
    ktSetHotLinks(true);
    ktSetHotLinks(false);
  }
  EXPECT_TRUE(ktGetHotLinks()) << "untouched by the inner context";

  ktEndVmSession(vm);
  EXPECT_FALSE(ktGetHotLinks()) << "ends with the session";
  ktStartVmSession(vm);
  EXPECT_FALSE(ktGetHotLinks()) << "a new session starts off";
  ktLeaveVmContext();
  ktDeleteVmContext(vm);
}

}  // namespace
