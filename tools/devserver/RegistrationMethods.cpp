// Registration.svc: accounts and computers. There is no mail on this server: an activation mail activates the
// account at once, and a password mail is only answered.

#include "devserver/MethodSupport.h"
#include "devserver/Methods.h"

namespace devserver {

namespace {

struct User {
    std::int64_t id = 0;
    std::string mailId;
    std::string password;
    std::int64_t cloudComputerId = 0;
    bool activated = false;
};

std::optional<User> findUser(Tables& tables, std::string_view column, const Text& value)
{
    if (!isGiven(value))
        return std::nullopt;
    auto query = tables.db.prepare("SELECT user_id, mail_id, password, cloud_computer_id, activated FROM users WHERE "
        + std::string(column) + " = ?1");
    query.bindAll(*value);
    if (!query.step())
        return std::nullopt;
    return User { query.integer(0), query.text(1), query.text(2), query.integer(3), query.integer(4) != 0 };
}

// A new account, with the computer that stands for its cloud storage.
User createUser(Tables& tables, const UserRegistrationQuery& query)
{
    tables.db.prepare("INSERT INTO users (mail_id, password, first_name, last_name, nick_name) "
                      "VALUES (?1, coalesce(?2, ''), coalesce(?3, ''), coalesce(?4, ''), coalesce(?5, ''))")
        .bindAll(query.mailId, query.passWord, query.firstName, query.lastName, query.nickName)
        .run();
    User user { tables.db.lastInsertRowid(), *query.mailId, query.passWord.value_or(""), 0, false };
    tables.db.prepare("INSERT INTO computers (user_id, is_cloud) VALUES (?1, 1)").bindAll(user.id).run();
    user.cloudComputerId = tables.db.lastInsertRowid();
    tables.db.prepare("UPDATE users SET cloud_computer_id = ?1 WHERE user_id = ?2")
        .bindAll(user.cloudComputerId, user.id)
        .run();
    return user;
}

}

UserRegistrationResponseData registerUser(Tables& tables, const UserRegistrationQuery& query)
{
    UserRegistrationResponseData reply;
    if (!isGiven(query.mailId))
        return setStatus(reply, false, "a mail address is required");
    auto user = findUser(tables, "mail_id", query.mailId);
    // "ReturnVal": "1" for a new account, "2" for an existing one whose password matches, "0" for a refusal.
    if (user && user->password != query.passWord.value_or("")) {
        reply.returnValue = text("0");
        return setStatus(reply, false, "wrong password for " + user->mailId);
    }
    reply.returnValue = text(user ? "2" : "1");
    if (!user)
        user = createUser(tables, query);
    reply.userId = text(user->id);
    reply.cloudComputerId = text(user->cloudComputerId);
    return setStatus(reply, true);
}

RegisterComputerResponseData registerComputer(Tables& tables, const RegisterComputerQuery& query)
{
    RegisterComputerResponseData reply;
    const auto user = findUser(tables, "user_id", query.userId);
    if (!user)
        return setStatus(reply, false, "no user " + query.userId.value_or(""));
    tables.db.prepare("INSERT INTO computers (user_id, korbanhold_path) VALUES (?1, coalesce(?2, ''))")
        .bindAll(user->id, query.korbanholdPath)
        .run();
    reply.computerId = text(tables.db.lastInsertRowid());
    return setStatus(reply, true);
}

SendActivationMailResponseData sendActivationMail(Tables& tables, const SendActivationMailQuery& query)
{
    SendActivationMailResponseData reply;
    const auto user = findUser(tables, "user_id", query.userId);
    if (!user || (isGiven(query.mailId) && *query.mailId != user->mailId)) {
        reply.returnMsg = text("no user " + query.userId.value_or("") + " with that mail address");
        return setStatus(reply, false, *reply.returnMsg->stringIf());
    }
    tables.db.prepare("UPDATE users SET activated = 1 WHERE user_id = ?1").bindAll(user->id).run();
    reply.returnMsg = text("activation mail sent to " + user->mailId + "; the account is active");
    return setStatus(reply, true);
}

CheckUserMailActivationStatusResponseData checkUserMailActivationStatus(
    Tables& tables, const CheckUserMailActivationStatusQuery& query)
{
    CheckUserMailActivationStatusResponseData reply;
    const auto user = findUser(tables, "user_id", query.userId);
    if (!user)
        return setStatus(reply, false, "no user " + query.userId.value_or(""));
    reply.returnValue = text(user->activated ? "1" : "0");
    return setStatus(reply, true);
}

SendPasswordToMailIdResponseData sendPasswordToMailId(Tables& tables, const SendPasswordToMailIdQuery& query)
{
    SendPasswordToMailIdResponseData reply;
    const auto user = findUser(tables, "mail_id", query.mailId);
    reply.returnMsg = text(user ? "password sent to " + user->mailId : "no account for " + query.mailId.value_or(""));
    return setStatus(reply, user.has_value(), *reply.returnMsg->stringIf());
}

// Requests to start work that happens elsewhere in the product: accepted (the request log keeps them).
OneTimeSyncOwnersSharedFoldersResponseData oneTimeSyncOwnersSharedFolders(
    Tables&, const OneTimeSyncOwnersSharedFoldersQuery&)
{
    return statusReply<OneTimeSyncOwnersSharedFoldersResponseData>(true);
}

TransferFilesFromCloudToBaseSystemResponseData transferFilesFromCloudToBaseSystem(
    Tables&, const TransferFilesFromCloudToBaseSystemQuery&)
{
    return statusReply<TransferFilesFromCloudToBaseSystemResponseData>(true);
}

OneTimeSyncFilesResponseData oneTimeSyncFiles(Tables&, const OneTimeSyncFilesQuery&)
{
    return statusReply<OneTimeSyncFilesResponseData>(true);
}

}
