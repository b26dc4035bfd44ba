// Accounts and computers, and what computers report about themselves.

#include "devserver/DevServerTest.h"

using namespace devservertest;
using namespace messages;
using platform::Value;
namespace o = messages::operations;

class Accounts : public DevServerTest {
protected:
    static UserRegistrationResponseData registerUser(const std::string& mail, const std::string& password)
    {
        UserRegistrationQuery query;
        query.mailId = mail;
        query.passWord = password;
        query.nickName = "ann";
        return ask(*server, o::asyncUserRegistration, query);
    }

    static RegisterComputerResponseData registerComputer(const std::string& user)
    {
        RegisterComputerQuery query;
        query.userId = user;
        query.korbanholdPath = "Users\\ann\\Korbanhold";
        return ask(*server, o::asyncRegisterComputer, query);
    }
};

TEST_F(Accounts, ANewMailAddressGetsAnAccountWithACloudComputer)
{
    const auto reply = registerUser("ann@example.org", "secret");
    EXPECT_EQ(textOf(reply.returnStatus), "0");
    EXPECT_EQ(textOf(reply.returnValue), "1");
    EXPECT_EQ(textOf(reply.userId), "1");
    const auto computers = get(server->adminUrl("computers")).json();
    ASSERT_EQ(computers.count(), 1u);
    EXPECT_EQ(textOf(reply.cloudComputerId), std::to_string(computers.at(0).find("computer_id")->number().int64Value()));
    EXPECT_EQ(*computers.at(0).find("is_cloud"), Value::integer(1));
}

TEST_F(Accounts, AKnownMailAddressWithItsPasswordGetsTheSameAccount)
{
    const auto first = registerUser("ann@example.org", "secret");
    const auto again = registerUser("ann@example.org", "secret");
    EXPECT_EQ(textOf(again.returnStatus), "0");
    EXPECT_EQ(textOf(again.returnValue), "2");
    EXPECT_EQ(textOf(again.userId), textOf(first.userId));
    EXPECT_EQ(textOf(again.cloudComputerId), textOf(first.cloudComputerId));
}

TEST_F(Accounts, AKnownMailAddressWithAnotherPasswordIsRefused)
{
    registerUser("ann@example.org", "secret");
    const auto reply = registerUser("ann@example.org", "guess");
    EXPECT_EQ(textOf(reply.returnStatus), "1");
    EXPECT_EQ(textOf(reply.returnValue), "0");
    EXPECT_NE(textOf(reply.error).find("wrong password"), std::string::npos);
}

TEST_F(Accounts, RegistrationWithoutAMailAddressIsRefused)
{
    EXPECT_EQ(textOf(registerUser("", "secret").returnStatus), "1");
}

TEST_F(Accounts, AComputerIsRegisteredForAKnownUserOnly)
{
    const auto user = registerUser("ann@example.org", "secret");
    const auto computer = registerComputer(textOf(user.userId));
    EXPECT_EQ(textOf(computer.returnStatus), "0");
    EXPECT_NE(textOf(computer.computerId), textOf(user.cloudComputerId));
    const auto unknown = registerComputer("99");
    EXPECT_EQ(textOf(unknown.returnStatus), "1");
    EXPECT_EQ(textOf(unknown.computerId), "");
}

TEST_F(Accounts, TheActivationMailActivatesTheAccountAtOnce)
{
    const auto user = textOf(registerUser("ann@example.org", "secret").userId);
    CheckUserMailActivationStatusQuery check;
    check.userId = user;
    EXPECT_EQ(textOf(ask(*server, o::asyncCheckUserMailActivationStatus, check).returnValue), "0");

    SendActivationMailQuery mail;
    mail.userId = user;
    mail.mailId = "ann@example.org";
    const auto sent = ask(*server, o::asyncSendActivationMail, mail);
    EXPECT_EQ(textOf(sent.returnStatus), "0");
    EXPECT_NE(textOf(sent.returnMsg).find("ann@example.org"), std::string::npos);
    EXPECT_EQ(textOf(ask(*server, o::asyncCheckUserMailActivationStatus, check).returnValue), "1");
}

TEST_F(Accounts, AnActivationMailToAnotherAddressThanTheUsersIsRefused)
{
    SendActivationMailQuery mail;
    mail.userId = textOf(registerUser("ann@example.org", "secret").userId);
    mail.mailId = "bob@example.org";
    EXPECT_EQ(textOf(ask(*server, o::asyncSendActivationMail, mail).returnStatus), "1");
}

TEST_F(Accounts, ThePasswordMailIsAnsweredForAKnownAddressOnly)
{
    registerUser("ann@example.org", "secret");
    SendPasswordToMailIdQuery query;
    query.mailId = "ann@example.org";
    EXPECT_EQ(textOf(ask(*server, o::asyncSendPasswordToMailId, query).returnStatus), "0");
    query.mailId = "bob@example.org";
    const auto unknown = ask(*server, o::asyncSendPasswordToMailId, query);
    EXPECT_EQ(textOf(unknown.returnStatus), "1");
    EXPECT_EQ(textOf(unknown.returnMsg), "no account for bob@example.org");
}

TEST_F(Accounts, RequestsForWorkElsewhereAreAccepted)
{
    EXPECT_EQ(textOf(ask(*server, o::asyncOneTimeSyncOwnersSharedFolders, {}).returnStatus), "0");
    EXPECT_EQ(textOf(ask(*server, o::asyncTransferFilesFromCloudToBaseSystem, {}).returnStatus), "0");
    EXPECT_EQ(textOf(ask(*server, o::asyncOneTimeSyncFiles, {}).returnStatus), "0");
}

TEST_F(Accounts, AComputersStatusIsStoredAndItsVersionAnswered)
{
    const auto computer = textOf(registerComputer(textOf(registerUser("ann@example.org", "s").userId)).computerId);
    UpdateComputerStatusQuery status;
    status.computerId = computer;
    status.dateTime = "2024-05-01 10:00:00";
    status.versionNumber = "1.2";
    const auto reply = ask(*server, o::asyncUpdateComputerStatus, status);
    EXPECT_EQ(textOf(reply.returnStatus), "0");
    EXPECT_EQ(textOf(reply.VersionNumber), "1.2");
    const auto rows = get(server->adminUrl("computers")).json();
    EXPECT_EQ(*rows.at(1).find("status_time"), Value("2024-05-01 10:00:00"));
    status.computerId = "99";
    EXPECT_EQ(textOf(ask(*server, o::asyncUpdateComputerStatus, status).returnStatus), "1");
}

TEST_F(Accounts, AnErrorReportIsStoredAndAnsweredWithReturnStatus0)
{
    LogErrorQuery error;
    error.errorClass = "SyncFilesXpcService";
    error.errorMethod = "SyncFile";
    error.errorMessage = "*** -[__NSArrayM objectAtIndex:]: index 3 beyond bounds";
    error.computerId = "7";
    error.userId = "1";
    EXPECT_EQ(textOf(ask(*server, o::asyncLogError, error).returnStatus), "0");
    const auto rows = get(server->adminUrl("errors")).json();
    ASSERT_EQ(rows.count(), 1u);
    EXPECT_EQ(*rows.at(0).find("error_class"), Value("SyncFilesXpcService"));
    EXPECT_EQ(*rows.at(0).find("error_method"), Value("SyncFile"));
    EXPECT_EQ(*rows.at(0).find("error_message"), Value(*error.errorMessage));
    EXPECT_EQ(*rows.at(0).find("computer_id"), Value("7"));
    EXPECT_EQ(*rows.at(0).find("user_id"), Value("1"));
}
