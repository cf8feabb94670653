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

namespace {

std::string localized(const Throwable_DEPRECATED& error)
{
    std::ostringstream stream;
    ObjectOutputStream out(stream);
    error.writeLocalizedMsg(out);
    return stream.str();
}

class Collect : public StreamHandler {
public:
    explicit Collect(std::string* sink) : sink_(sink) {}

protected:
    void _output(const std::string& text) override { *sink_ += text; }

private:
    std::string* sink_;
};

// One instance of every deprecated class, each with its own message.
std::vector<std::unique_ptr<Throwable_DEPRECATED>> every_deprecated()
{
    std::vector<std::unique_ptr<Throwable_DEPRECATED>> all;
    all.emplace_back(new Throwable_DEPRECATED("throwable"));
    all.emplace_back(new InternalException_DEPRECATED("internal"));
    all.emplace_back(new UserException_DEPRECATED("user"));
    all.emplace_back(new UserErrorException_DEPRECATED("user error"));
    all.emplace_back(new ktErrorException_DEPRECATED(0x20001, "ZENTRA:nomem", "out of memory"));
    return all;
}

}  // namespace

TEST(DeprecatedExceptions, WriteTheirMessageEveryWay)
{
    for (const auto& error : every_deprecated()) {
        std::string message = error->what();
        EXPECT_EQ(localized(*error), message) << typeid(*error).name();
        EXPECT_EQ(SimpleFormatter().format(*error), message);

        std::string printed;
        Logger logger;
        logger.addHandler(new Collect(&printed));
        report(logger, *error, Level(Level::Severe));
        EXPECT_EQ(printed, "Severe:\n" + message);
    }
}

TEST(DeprecatedExceptions, CloneAndRethrowKeepDynamicType)
{
    for (const auto& error : every_deprecated()) {
        std::unique_ptr<Throwable_DEPRECATED> copy(error->clone());
        EXPECT_EQ(typeid(*copy), typeid(*error));
        EXPECT_STREQ(copy->what(), error->what());
        try {
            copy->rethrow();
            FAIL() << "rethrow returned";
        } catch (const Throwable_DEPRECATED& caught) {
            EXPECT_EQ(typeid(caught), typeid(*error));
            EXPECT_STREQ(caught.what(), error->what());
        }
    }
}

TEST(DeprecatedExceptions, CaughtThroughTheirInterfaces)
{
    auto caught_as_internal = [](const std::function<void()>& raise) {
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
    EXPECT_EQ(caught_as_internal([] { throw InternalException_DEPRECATED("a"); }), "internal:a");
    EXPECT_EQ(caught_as_internal([] { throw UserException_DEPRECATED("b"); }), "user:b");
    EXPECT_EQ(caught_as_internal([] { throw UserErrorException_DEPRECATED("c"); }), "user:c");
    EXPECT_EQ(caught_as_internal([] { throw ktErrorException_DEPRECATED(1, "ZENTRA:x", "d"); }),
              "user:d");
    EXPECT_EQ(caught_as_internal([] { throw Throwable_DEPRECATED("e"); }), "throwable:e");

    // Through the interface, clone still copies the whole object.
    InternalException_DEPRECATED internal("deep");
    const except::IException& as_interface = internal;
    std::unique_ptr<except::IException> copy(as_interface.clone());
    EXPECT_EQ(typeid(*copy), typeid(InternalException_DEPRECATED));
    EXPECT_STREQ(copy->what(), "deep");
}

TEST(DeprecatedExceptions, KtErrorCarriesCodeAndIdentifier)
{
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
}

// The UTF-8 message of a deprecated user exception comes back from the
// interface as the same text in UTF-16.
TEST(DeprecatedExceptions, UnicodeMessageRoundTrip)
{
    UserException_DEPRECATED error("caf\xc3\xa9 \xf0\x9d\x84\x9e");
    EXPECT_EQ(static_cast<const except::IUserException&>(error).GetUnicodeMessageTxt(),
              u"caf\u00e9 \U0001D11E");
}

TEST(SimpleException, IdentifierAndMessage)
{
    SimpleException error("ZENTRA:demo", u"na\u00efve \U0001D11E");
    EXPECT_EQ(error.GetID(), "ZENTRA:demo");
    EXPECT_EQ(error.GetUnicodeMessageTxt(), u"na\u00efve \U0001D11E");
    EXPECT_STREQ(error.what(), "na\xc3\xafve \xf0\x9d\x84\x9e");

    error.SetID("ZENTRA:other");
    error.SetMessageTxt(u"plain");
    EXPECT_EQ(error.GetID(), "ZENTRA:other");
    EXPECT_STREQ(error.what(), "plain");

    // An unpaired surrogate is not lost silently: it becomes U+FFFD.
    error.SetMessageTxt(std::u16string(1, u'\xd800'));
    EXPECT_STREQ(error.what(), "\xef\xbf\xbd");

    SimpleException blank;
    EXPECT_EQ(blank.GetID(), "");
    EXPECT_STREQ(blank.what(), "");
}

TEST(SimpleException, CloneRethrowAndCatchAs)
{
    SimpleException error("ZENTRA:demo", u"message");
    std::unique_ptr<except::IException> copy(static_cast<const except::IException&>(error).clone());
    EXPECT_EQ(typeid(*copy), typeid(SimpleException));
    EXPECT_EQ(copy->GetID(), "ZENTRA:demo");
    try {
        copy->rethrow();
    } catch (const std::exception& caught) {
        EXPECT_STREQ(caught.what(), "message");
        EXPECT_NE(dynamic_cast<const except::IUserException*>(&caught), nullptr);
    }
    SimpleException assigned;
    assigned = error;
    EXPECT_EQ(assigned.GetUnicodeMessageTxt(), u"message");
    EXPECT_STREQ(assigned.what(), "message");
}
