// The warning manager: statuses against a last-setting-wins model, the
// "all" stamping, listeners, modes, last-warning records, logging forms.
#include "kt/warnings.h"

#include <cctype>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <boost/optional/optional_io.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/counting_context.h"

using ::testing::_;
using ::testing::Eq;

namespace {

class WarningManagerTest : public ::testing::Test {
protected:
  void SetUp() override { manager_ = ktNewWarningManager(&contexts_.memory); }
  void TearDown() override {
    ktDeleteWarningManager(manager_);
    EXPECT_EQ(contexts_.LiveBlocks(), 0u) << "leaked blocks";
    EXPECT_EQ(contexts_.BadFrees(), 0) << "double or foreign frees";
  }

  kttest::Contexts contexts_;
  ktWarningManagerContext* manager_ = nullptr;
};

class MockWarningLog : public ktWarningLog {
public:
  MOCK_METHOD(void, logWarning,
              (ktWarningManagerContext*, const std::string&, const cx::ustring&, va_list*,
               const cx::ustring&, bool),
              (override));
  MOCK_METHOD(void, logWarning,
              (ktWarningManagerContext*, const boost::optional<std::string>&,
               const resource_core::BaseMsgID&, bool),
              (override));
};

std::string Lower(std::string s) {
  for (auto& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

// The intended meaning of the stamps: the most recent setting wins,
// between an identifier's own and the "all" one. Settings are (time, status).
struct StatusModel {
  std::pair<long, int> all{0, KT_WARNING_ON};
  std::map<std::string, std::pair<long, int>> own;
  long clock = 0;

  void Set(const std::string& id, int status) {
    std::string key = Lower(id);
    (key == "all" ? all : own[key]) = {++clock, status};
  }
  int Get(const std::string& id) const {
    auto it = own.find(Lower(id));
    return it == own.end() || it->second.first < all.first ? all.second : it->second.second;
  }
};

}  // namespace

// The model holds the documented sequences (an identifier set after "all"
// wins; the next "all" wins back, ties included; case is ignored; "all" is
// not a record).
TEST_F(WarningManagerTest, RandomSettingsMatchTheLastSettingWinsModel) {
  const std::vector<std::string> ids = {"A:x", "a:X", "B:y", "C:z", "D:w", "all", "ALL", "All"};
  std::mt19937 rng(11);
  StatusModel model;
  for (int step = 0; step < 20000; ++step) {
    const std::string& id = ids[rng() % ids.size()];
    int status = static_cast<int>(rng() % 3);
    ktSetWarningStatus(manager_, id.c_str(), status);
    model.Set(id, status);
    for (const char* probe : {"A:x", "B:y", "C:z", "D:w", "E:never"})
      ASSERT_EQ(ktGetWarningStatus(manager_, probe), model.Get(probe))
          << "step " << step << " probe " << probe;
  }
  EXPECT_EQ(ktCountWarningsInWarningManager(manager_), model.own.size());

  // Iteration reports each record with the same effective status.
  std::map<std::string, int> seen;
  ktIterateOverWarningStatuses(manager_, &seen, [](void* data, const char* id, int status) {
    (*static_cast<std::map<std::string, int>*>(data))[Lower(id)] = status;
  });
  ASSERT_EQ(seen.size(), model.own.size());
  for (const auto& [id, status] : seen)
    EXPECT_EQ(status, model.Get(id)) << id;
}

TEST_F(WarningManagerTest, ListenersAreKeyedByFunctionAndData) {
  static std::multiset<std::string> calls;
  calls.clear();
  auto record = [](void* data, const char* id, int status) {
    calls.insert(static_cast<const char*>(data) + (" " + std::to_string(status) + " " + id));
  };
  char a[] = "a", b[] = "b";
  ktAddWarningStatusListener(manager_, record, a);
  ktAddWarningStatusListener(manager_, record, a);  // same pair: once
  ktAddWarningStatusListener(manager_, record, b);
  ktSetWarningStatus(manager_, "all", KT_WARNING_ERROR);
  EXPECT_EQ(calls, (std::multiset<std::string>{"a 2 all", "b 2 all"}));
  EXPECT_EQ(ktRemoveWarningStatusListener(manager_, record, a), 1);
  EXPECT_EQ(ktRemoveWarningStatusListener(manager_, record, a), 0);
  calls.clear();
  ktSetWarningStatus(manager_, "X:y", KT_WARNING_OFF);
  EXPECT_EQ(calls, std::multiset<std::string>{"b 0 X:y"});
}

TEST_F(WarningManagerTest, FreshDefaultsModesHookAndRange) {
  EXPECT_EQ(ktGetWarningStatus(manager_, nullptr), KT_WARNING_ON);
  EXPECT_EQ(ktGetWarningStatus(manager_, "Foo:bar"), KT_WARNING_ON);
  EXPECT_EQ(ktCountWarningsInWarningManager(manager_), 0u);
  EXPECT_TRUE(ktIsWarningModeOn(manager_, 4));
  EXPECT_FALSE(ktIsWarningModeOn(manager_, 0));
  static unsigned hookValue = 99;
  ktSetWarningModeHook(manager_, [](unsigned v) { hookValue = v; });
  ktSetWarningMode(manager_, 0, 7);
  EXPECT_EQ(hookValue, 7u);
  EXPECT_FALSE(ktIsWarningModeOn(manager_, 0)) << "only exactly 1 is on";
  ktSetWarningMode(manager_, 0, 1);
  EXPECT_TRUE(ktIsWarningModeOn(manager_, 0));
  ktSetWarningMode(manager_, 3, 1);
  EXPECT_EQ(hookValue, 1u) << "only mode 0 calls the hook";
  ktSetWarningMode(manager_, 5, 1);
  ktSetWarningMode(manager_, -1, 1);
  EXPECT_FALSE(ktIsWarningModeOn(manager_, 5));
  EXPECT_FALSE(ktIsWarningModeOn(manager_, -1));
}

// Both forms record the last warning: the catalogue form builds the
// identifier, the text form keeps the formatted text. Mode 4 off stops the
// recording but not the callback, which a suppressed warning does not fire;
// setting a callback hands back the previous one.
TEST_F(WarningManagerTest, LoggingRecordsTheLastWarningAndFiresTheCallback) {
  std::string id;
  cx::ustring message;
  auto last = [&] { ktGetLastWarningMsg(manager_, id, message); return id; };
  using resource_core::BaseMsgID;
  ktLogWarning(manager_, boost::none, BaseMsgID("ZENTRA:legacy_two_part", "x"), true);
  EXPECT_EQ(last(), "ZENTRA:x") << "the two-part legacy component is shortened";
  ktLogWarning(manager_, boost::none, BaseMsgID("Comp", "mnem"), true);
  EXPECT_EQ(last(), "Comp:mnem");
  ktLogWarning(manager_, std::string("Given:id"), BaseMsgID("Comp", "mnem"), true);
  EXPECT_EQ(last(), "Given:id");

  int callbacks = 0;
  EXPECT_FALSE(ktSetWarningCallbackFcn(manager_, [&] { ++callbacks; })) << "none before";
  ktLogWarning(manager_, "Foo:bar", u"fmt %d", nullptr, u"fmt 42", false);
  EXPECT_EQ(last(), "Foo:bar");
  EXPECT_EQ(message, u"fmt 42") << "the formatted text is stored, not the format";
  EXPECT_EQ(callbacks, 1);
  ktSetWarningMode(manager_, 4, 0);
  ktLogWarning(manager_, "Other:one", u"", nullptr, u"later", false);
  EXPECT_EQ(last(), "Foo:bar");
  EXPECT_EQ(callbacks, 2) << "the callback still fires";
  ktLogWarning(manager_, "Other:one", u"", nullptr, u"quiet", true);
  EXPECT_EQ(callbacks, 2) << "suppressed";

  auto previous = ktSetWarningCallbackFcn(manager_, [&] { callbacks += 10; });
  previous();
  EXPECT_EQ(callbacks, 3) << "the swap hands back the previous callback";
  ktCallRegisteredWarningCallback(manager_);
  EXPECT_EQ(callbacks, 13);

  // The last printed identifier, in both forms.
  const char* out = nullptr;
  ktSetLastPrintedWarningId(manager_, "Foo:bar");
  EXPECT_STREQ(ktGetLastPrintedWarningId(manager_, &out), "Foo:bar");
  EXPECT_STREQ(out, "Foo:bar");
  ktSetLastPrintedWarningId(manager_, std::string("X:y"));
  ktGetLastPrintedWarningId(manager_, id);
  EXPECT_EQ(id, "X:y");
  EXPECT_THROW(ktSetLastPrintedWarningId(manager_, static_cast<const char*>(nullptr)),
               std::logic_error);
}


TEST_F(WarningManagerTest, AWarningLogTakesOverBothForms) {
  MockWarningLog log;
  EXPECT_EQ(ktGetWarningLog(manager_), nullptr);
  ktSetWarningLog(manager_, &log);
  EXPECT_EQ(ktGetWarningLog(manager_), &log);
  int callbacks = 0;
  ktSetWarningCallbackFcn(manager_, [&] { ++callbacks; });
  EXPECT_CALL(log, logWarning(manager_, Eq("Foo:bar"), _, nullptr, Eq(u"text"), true));
  EXPECT_CALL(log, logWarning(manager_, Eq(boost::none), _, false));
  ktLogWarning(manager_, "Foo:bar", u"", nullptr, u"text", true);
  ktLogWarning(manager_, boost::none, resource_core::BaseMsgID("C", "m"), false);
  std::string id = "unchanged";
  cx::ustring message;
  ktGetLastWarningMsg(manager_, id, message);
  EXPECT_EQ(id, "");
  EXPECT_EQ(callbacks, 0);
  ktSetWarningLog(manager_, nullptr);  // not deleted by the manager
}

TEST(WarningIdentifier, Validity) {
  struct Case { const char* text; bool valid; } cases[] = {{"a:b", true},   {"a", false},      {"a:", false},       {":a:b", false},
               {"1a:b", false}, {"a_1:b2", true},  {"a::b", false},     {"", false},
               {"A:b:C", true}, {"a:_b", false},   {"a:b-c", false},    {"a:b\xc3\xa9", false},
               {"Ab9_:Z", true}, {"a:b ", false}};
  for (const Case& c : cases)
    EXPECT_EQ(ktIsValidMessageIdentifier(std::string_view(c.text)), c.valid) << "'" << c.text << "'";
}

TEST(WarningContext, TranslatesStatusesAndOwnsItsManager) {
  kttest::Contexts contexts;
  kt_warning_context context;
  kt_initialize_warning_context(&context, &contexts.messages, &contexts.errors, &contexts.memory,
                                kttest::AppendToString, &contexts.printed);
  EXPECT_EQ(context.ownsManager, 1);
  EXPECT_FALSE(context.outputLive()) << "no hot query installed";
  kt_set_warning_status_id(&context, "A:b", 3);
  EXPECT_EQ(ktGetWarningStatus(kt_wmgr_from_warning_context(&context), "A:b"), KT_WARNING_OFF);
  kt_set_warning_status_id(&context, "A:b", 2);
  EXPECT_EQ(kt_get_warning_status_id(&context, "A:b"), KT_WARNING_ERROR);
  kt_clear_warning_context(&context);
  EXPECT_EQ(contexts.LiveBlocks(), 0u);

  ktWarningManagerContext* shared = ktNewWarningManager(&contexts.memory);
  kt_warning_context* made = kt_new_warning_context_with_warning_manager(
      nullptr, nullptr, &contexts.memory, shared, nullptr, nullptr);
  EXPECT_EQ(made->ownsManager, 0);
  kt_delete_warning_context(made);
  EXPECT_EQ(ktGetWarningStatus(shared, "x:y"), KT_WARNING_ON) << "manager survives";
  ktDeleteWarningManager(shared);
  EXPECT_EQ(contexts.LiveBlocks(), 0u);
  EXPECT_EQ(contexts.BadFrees(), 0);
}
