#include "Account.h"

#include "support/HttpClient.h"

#include <gtest/gtest.h>

namespace e2etest {

namespace {

using platform::Value;

// The text under `key` of a reply, or "" (with a test failure) when the reply does not carry it.
std::string replyText(const testsupport::HttpResult& reply, const char* key)
{
    const Value body = reply.json();
    const Value* value = body.isDictionary() ? body.find(key) : nullptr;
    const std::string* text = value ? value->stringIf() : nullptr;
    EXPECT_TRUE(text && !text->empty()) << "no " << key << " in " << reply.body;
    return text ? *text : std::string();
}

}

Account registerAccount(const testsupport::DevServerProcess& server, const std::string& mail,
    const std::string& korbanholdPath)
{
    Account account;
    const auto user = testsupport::postJson(server.methodUrl("Registration.svc/VerifyAndRegisterUserFromTool"),
        Value::dictionary({ { "MailID", mail }, { "Password", "secret" }, { "FirstName", "Ann" } }));
    account.userId = replyText(user, "UserID");
    const auto computer = testsupport::postJson(server.methodUrl("Registration.svc/RegisterComputer"),
        Value::dictionary({ { "UserID", account.userId }, { "KorbanholdPath", korbanholdPath } }));
    account.computerId = replyText(computer, "ComputerID");
    return account;
}

}
