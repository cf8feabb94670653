// SimpleException and the deprecated exception classes: what each is caught
// as, clone and rethrow keeping the dynamic type, and the text they write.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <typeinfo>
#include <vector>

#include "kt/errors.h"
#include "kt/logging.h"

using namespace Quivera::System;
namespace except = bedrock::core::except;

// One instance of every deprecated class, each with its own message: the
// message is written every way, and clone and rethrow keep the type.
TEST(DeprecatedExceptions, WriteTheirMessageEveryWayAndCloneKeepingTheType) {
  std::vector<std::unique_ptr<Throwable_DEPRECATED>> all;
  all.emplace_back(new Throwable_DEPRECATED("throwable"));
  all.emplace_back(new InternalException_DEPRECATED("internal"));
  all.emplace_back(new UserException_DEPRECATED("user"));
  all.emplace_back(new UserErrorException_DEPRECATED("user error"));
  all.emplace_back(new ktErrorException_DEPRECATED(0x20001, "ZENTRA:nomem", "out of memory"));
  for (const auto& error : all) {
    std::string message = error->what();
    std::ostringstream stream;
    ObjectOutputStream out(stream);
    error->writeLocalizedMsg(out);
    EXPECT_EQ(stream.str(), message) << typeid(*error).name();
    EXPECT_EQ(SimpleFormatter().format(*error), message);
    std::ostringstream printed;
    Logger logger;
    logger.addHandler(new OutputStreamHandler(&printed));
    report(logger, *error, Level(Level::Severe));
    EXPECT_EQ(printed.str(), "Severe:\n" + message);

    std::unique_ptr<Throwable_DEPRECATED> copy(error->clone());
    EXPECT_EQ(typeid(*copy), typeid(*error));
    EXPECT_STREQ(copy->what(), error->what());
    try {
      copy->rethrow();
      ADD_FAILURE() << "rethrow returned";
    } catch (const Throwable_DEPRECATED& caught) {
      EXPECT_EQ(typeid(caught), typeid(*error));
      EXPECT_STREQ(caught.what(), error->what());
    }
  }
}

TEST(DeprecatedExceptions, CaughtThroughTheirInterfaces) {
  auto caught_as = [](const std::function<void()>& raise) {
    try {
      raise();
    } catch (const except::IInternalException& error) {
      return std::string("internal:") + error.what();
    } catch (const except::IUserException& error) {
      return std::string("user:") + error.what();
    } catch (const Throwable_DEPRECATED& error) {
      return std::string("throwable:") + error.what();
    }
    return std::string("none");
  };
  EXPECT_EQ(caught_as([] { throw InternalException_DEPRECATED("a"); }), "internal:a");
  EXPECT_EQ(caught_as([] { throw UserException_DEPRECATED("b"); }), "user:b");
  EXPECT_EQ(caught_as([] { throw UserErrorException_DEPRECATED("c"); }), "user:c");
  EXPECT_EQ(caught_as([] { throw ktErrorException_DEPRECATED(1, "ZENTRA:x", "d"); }), "user:d");
  EXPECT_EQ(caught_as([] { throw Throwable_DEPRECATED("e"); }), "throwable:e");

  // Through the interface, clone still copies the whole object.
  InternalException_DEPRECATED internal("deep");
  std::unique_ptr<except::IException> copy(static_cast<const except::IException&>(internal).clone());
  EXPECT_EQ(typeid(*copy), typeid(InternalException_DEPRECATED));
  EXPECT_STREQ(copy->what(), "deep");
}

// The code and identifier of a ktError exception; the UTF-8 message of a
// deprecated user exception comes back from the interface in UTF-16.
TEST(DeprecatedExceptions, KtErrorCarriesCodeAndIdentifierAndMessagesRoundTrip) {
  ktErrorException_DEPRECATED error(0x10003, "ZENTRA:ERR_VALUE_OVERFLOW_TYPE", "too big");
  EXPECT_EQ(error.getCode(), 0x10003);
  EXPECT_EQ(error.GetID(), "ZENTRA:ERR_VALUE_OVERFLOW_TYPE");
  const except::IUserException& as_user = error;
  EXPECT_EQ(as_user.GetID(), "ZENTRA:ERR_VALUE_OVERFLOW_TYPE");
  EXPECT_EQ(as_user.GetUnicodeMessageTxt(), u"too big");
  ktErrorException_DEPRECATED empty;
  EXPECT_EQ(empty.getCode(), 0);
  EXPECT_EQ(empty.GetID(), "");
  EXPECT_STREQ(empty.what(), "");
  UserException_DEPRECATED user("caf\xc3\xa9 \xf0\x9d\x84\x9e");
  EXPECT_EQ(static_cast<const except::IUserException&>(user).GetUnicodeMessageTxt(),
            u"caf\u00e9 \U0001D11E");
}

TEST(SimpleException, IdentifierMessageCloneAndAssignment) {
  SimpleException error("ZENTRA:demo", u"na\u00efve \U0001D11E");
  EXPECT_EQ(error.GetID(), "ZENTRA:demo");
  EXPECT_EQ(error.GetUnicodeMessageTxt(), u"na\u00efve \U0001D11E");
  EXPECT_STREQ(error.what(), "na\xc3\xafve \xf0\x9d\x84\x9e");

  std::unique_ptr<except::IException> copy(static_cast<const except::IException&>(error).clone());
  EXPECT_EQ(typeid(*copy), typeid(SimpleException));
  EXPECT_EQ(copy->GetID(), "ZENTRA:demo");
  try {
    copy->rethrow();
  } catch (const std::exception& caught) {
    EXPECT_STREQ(caught.what(), error.what());
    EXPECT_NE(dynamic_cast<const except::IUserException*>(&caught), nullptr);
  }

  error.SetID("ZENTRA:other");
  error.SetMessageTxt(u"plain");
  EXPECT_EQ(error.GetID(), "ZENTRA:other");
  EXPECT_STREQ(error.what(), "plain");
  SimpleException assigned;
  EXPECT_EQ(assigned.GetID(), "");
  EXPECT_STREQ(assigned.what(), "");
  assigned = error;
  EXPECT_EQ(assigned.GetUnicodeMessageTxt(), u"plain");
  EXPECT_STREQ(assigned.what(), "plain");
  // An unpaired surrogate is not lost silently: it becomes U+FFFD.
  error.SetMessageTxt(std::u16string(1, u'\xd800'));
  EXPECT_STREQ(error.what(), "\xef\xbf\xbd");
}
