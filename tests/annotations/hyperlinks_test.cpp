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

// A context entered on this thread and running a session, for the scope.
struct Session {
  kt_vm_context* vm = ktNewVmContext();
  Session() { ktEnterVmContext(vm); ktStartVmSession(vm); }
  ~Session() { ktEndVmSession(vm); ktLeaveVmContext(); ktDeleteVmContext(vm); }
};

// The six texts exactly; links with the file name's quotes doubled.
TEST(Annotations, TableAndLinksInAnyMessageContext) {
  int status = 0;
  kt_message_context mc{};
  ASSERT_EQ(kt_initialize_message_context(&status, &mc, ktMalloc, ktRealloc), 0);
  ASSERT_EQ(ktInitializeFileLineColumnMessageContext(&mc), 0);
  EXPECT_EQ(ktInitializeFileLineColumnMessageContext(&mc), 0) << "the same table again";
  const char* const table[][2] = {
      {"HREF_FILE_LINE_COLUMN", "<a href=\"zentra: opentoline('%s',%ld,%ld)\">"},
      {"HREF_DOC_FILE_KEY", "<a href=\"zentra: showhelp([helproot '%s'],'%s')\">"},
      {"HREF_END", "</a>"}, {"LINENO_NO_ANONYMOUS", "%d"},
      {"LINENO_ONE_ANONYMOUS", "%d@"}, {"LINENO_MANY_ANONYMOUS", "%d@%d"}};
  for (int entry = 1; entry <= 6; ++entry) {
    EXPECT_STREQ(kt_get_message_mnemonic(&mc, 0x3F0000 + entry), table[entry - 1][0]);
    EXPECT_STREQ(kt_get_primary_message(&mc, 0x3F0000 + entry), table[entry - 1][1]);
  }
  EXPECT_EQ(kt_get_primary_message(&mc, 0x3F0007), nullptr);

  const struct {
    const char* name;
    long line, column;
    const char* arguments;  // of the link
  } cases[] = {{"/src/a.m", 12, 5, "'/src/a.m',12,5"},      {"it's.m", 1, 1, "'it''s.m',1,1"},
               {"''", 3, 9, "'''''',3,9"},          {"100%d \"x\".m", 7, 2, "'100%d \"x\".m',7,2"},
               {nullptr, 4000000000L, 5000000000L, "'',4000000000,5000000000"}};
  for (const auto& c : cases) {
    std::string out, link = "<a href=\"zentra: opentoline(" + std::string(c.arguments) + ")\">";
    EXPECT_EQ(ktPutAnnotationHeader(&mc, Append, &out, c.name, c.line, c.column), int(link.size()));
    EXPECT_EQ(out, link);
  }
  std::string out;
  EXPECT_EQ(ktPutAnnotationTrailer(&mc, Append, &out), 4);
  EXPECT_EQ(out, "</a>");
  kt_clear_message_context(&mc, ktFree);
}

// Printing registers the table in the installed message context when it
// is missing, not once per link: a single removal makes its codes unknown.
TEST(Annotations, PrintOnlyWithHotLinksInASessionAndANonZeroLine) {
  const std::string link = "<a href=\"zentra: opentoline('it''s.m',3,4)\">it's.m:3:4</a>";
  kttest::ConsoleCapture console;
  {
    Session session;
    ktPrintAnnotationHeader("a.m", 1, 1);
    ktPrintAnnotationTrailer(1);
    EXPECT_EQ(console.text, "") << "hot links off";
    ktSetHotLinks(true);
    ktPrintAnnotationHeader("a.m", 0, 3);
    ktPrintAnnotationTrailer(0);
    EXPECT_EQ(console.text, "") << "line 0 and flag 0 print nothing";
    for (int i = 0; i < 3; ++i) ktPrintAnnotationHeader("it's.m", 3, 4);
    int status = 0;
    kt_message_table module63 = {6, 63, nullptr, nullptr, nullptr, ""};  // removal reads the module
    EXPECT_EQ(kt_remove_primary_message_table(&status, ktGetMessageContext(), &module63), 0);
    EXPECT_EQ(kt_get_primary_message(ktGetMessageContext(), KT_HREF_END), nullptr);
    console.text.clear();
    ktPrintAnnotationHeader("it's.m", 3, 4);
    ktPrintf("it's.m:3:4");
    ktPrintAnnotationTrailer(1);
    EXPECT_EQ(console.text, link) << "registered again when missing";
    ktSetHotLinks(false);
    ktPrintAnnotationHeader("a.m", 1, 1);
  }
  ktPrintAnnotationHeader("a.m", 1, 1);
  EXPECT_EQ(console.text, link);
}

TEST(Annotations, HotLinksBelongToTheSession) {
  ktSetHotLinks(true);  // no session: nowhere to keep it
  EXPECT_FALSE(ktGetHotLinks());
  Session session;
  EXPECT_FALSE(ktGetHotLinks()) << "a session starts with hot links off";
  ktSetHotLinks(true);
  EXPECT_TRUE(ktGetHotLinks());
  std::thread([] { EXPECT_FALSE(ktGetHotLinks()) << "a thread outside the context"; }).join();
  {
    Session inner;
    EXPECT_FALSE(ktGetHotLinks()) << "a second context has its own";
    ktSetHotLinks(false);
  }
  EXPECT_TRUE(ktGetHotLinks()) << "untouched by the inner context";
  ktEndVmSession(session.vm);
  EXPECT_FALSE(ktGetHotLinks()) << "ends with the session";
  ktStartVmSession(session.vm);
  EXPECT_FALSE(ktGetHotLinks()) << "a new session starts off";
}

}  // namespace
