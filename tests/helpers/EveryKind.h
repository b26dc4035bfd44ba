#pragma once

// A message that holds one value of every type that travels between processes, and its check, shared by the tests
// and the helper program that plays the other process: each side builds one, sends it, and checks the one it gets.
// The file descriptor leads to a file holding `fileText`; the receiver reads it through the descriptor it got.

#include "platform/IpcObject.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cmath>
#include <string>

namespace ipctest {

inline constexpr std::int64_t everyKindDate = -1'500'000'000'123'456'789;
inline const platform::ipc::Uuid everyKindUuid = { 0x68, 0x75, 0x3a, 0x44, 0x4d, 0x6f, 0x12, 0x26, 0x9c, 0x60, 0x00, 0x50, 0xe4, 0xc0, 0x00, 0x67 };

// A descriptor of a new unlinked temporary file that holds `text`.
inline platform::OwnedFd temporaryFileHolding(const std::string& text)
{
    char path[] = "/tmp/ipc-every-kind-XXXXXX";
    platform::OwnedFd file(::mkstemp(path));
    ::unlink(path);
    if (file && ::write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        file.reset();
    return file;
}

inline platform::ipc::Object messageOfEveryKind(const std::string& fileText, const std::string& sharedText)
{
    using platform::ipc::Object;
    const platform::OwnedFd file = temporaryFileHolding(fileText);
    Object message = Object::dictionary();
    message.set("null", Object());
    message.set("bool", Object::boolean(true));
    message.set("int64", Object::int64(-9'007'199'254'740'993));
    message.set("uint64", Object::uint64(18'446'744'073'709'551'615ull));
    message.set("double", Object::real(0.1));
    message.set("date", Object::date(everyKindDate));
    message.set("data", Object::data({ 0x00, 0xff, 0x10 }));
    message.set("string", Object::string("zoë ✓"));
    message.set("uuid", Object::uuid(everyKindUuid));
    message.set("fd", Object::fileDescriptor(file.get()).value_or(Object()));
    message.set("shared memory",
        Object::sharedMemory({ reinterpret_cast<const std::uint8_t*>(sharedText.data()), sharedText.size() }).value_or(Object()));
    message.set("endpoint", Object::endpoint("Ulmaridon.SyncFilesXpcService"));
    message.set("array", Object::array({ Object::int64(1), Object::array({ Object::string("nested") }) }));
    message.set("dictionary", Object::dictionary({ { "inner", Object::boolean(false) } }));
    return message;
}

// What is wrong with a received message of every kind; empty when nothing is.
inline std::string checkMessageOfEveryKind(const platform::ipc::Object& message, const std::string& fileText,
    const std::string& sharedText)
{
    using platform::ipc::Object;
    using platform::ipc::Type;
    std::string problems;
    const auto expect = [&](bool holds, const char* what) {
        if (!holds)
            problems += std::string(problems.empty() ? "" : "; ") + what;
    };
    const auto entry = [&](const char* key) {
        const Object* value = message.find(key);
        return value ? *value : Object::error(platform::ipc::ErrorEvent::ConnectionInvalid);
    };
    expect(message.count() == 14, "14 entries");
    expect(entry("null").type() == Type::Null, "null");
    expect(entry("bool").type() == Type::Bool && entry("bool").boolValue(), "bool");
    expect(entry("int64").type() == Type::Int64 && entry("int64").int64Value() == -9'007'199'254'740'993, "int64");
    expect(entry("uint64").type() == Type::UInt64 && entry("uint64").uint64Value() == 18'446'744'073'709'551'615ull, "uint64");
    expect(entry("double").type() == Type::Double && entry("double").doubleValue() == 0.1, "double");
    expect(entry("date").type() == Type::Date && entry("date").dateValue() == everyKindDate, "date");
    expect(entry("data") == Object::data({ 0x00, 0xff, 0x10 }), "data");
    expect(entry("string") == Object::string("zoë ✓"), "string");
    expect(entry("uuid") == Object::uuid(everyKindUuid), "uuid");
    expect(entry("endpoint") == Object::endpoint("Ulmaridon.SyncFilesXpcService"), "endpoint");
    expect(entry("array") == Object::array({ Object::int64(1), Object::array({ Object::string("nested") }) }), "array");
    expect(entry("dictionary") == Object::dictionary({ { "inner", Object::boolean(false) } }), "dictionary");
    const auto memory = entry("shared memory").sharedMemoryBytes();
    expect(memory && std::string(memory->begin(), memory->end()) == sharedText, "shared memory");
    std::string fileContents(fileText.size() + 1, '\0');
    const ssize_t read = ::pread(entry("fd").descriptor(), fileContents.data(), fileContents.size(), 0);
    expect(read >= 0 && fileContents.substr(0, static_cast<std::size_t>(read)) == fileText, "file read through the descriptor");
    return problems;
}

}
