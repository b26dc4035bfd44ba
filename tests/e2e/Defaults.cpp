#include "Defaults.h"

#include "platform/PreferenceJson.h"

#include <gtest/gtest.h>

namespace e2etest {

namespace {

std::string jsonText(const platform::Value& value)
{
    platform::JsonWriteOptions options;
    options.allowFragments = true;
    return platform::writePreferenceJson(value, options);
}

}

void Defaults::run(const std::vector<std::string>& arguments) const
{
    std::vector<std::string> command = { "defaults" };
    command.insert(command.end(), arguments.begin(), arguments.end());
    const auto result = testsupport::runProcess(testsupport::builtProgram("tools/korbanhold"), command,
        m_folders.options());
    EXPECT_EQ(result.exitCode, 0) << "korbanhold defaults " << arguments.front() << ": " << result.standardError;
}

void Defaults::write(const std::string& domain, const std::string& key, const std::string& value) const
{
    run({ "write", domain, key, value });
}

void Defaults::write(const std::string& domain, const std::string& key, const platform::Value& value) const
{
    run({ "write", domain, key, "--json", jsonText(value) });
}

void Defaults::replace(const std::string& domain, const platform::Value& contents) const
{
    run({ "write", domain, "--json", jsonText(contents) });
}

std::optional<platform::Value> Defaults::read(const std::string& domain, const std::string& key) const
{
    // `read` fails (status 1) when the domain or the key is missing; that is an answer here, not an error.
    const auto result = testsupport::runProcess(testsupport::builtProgram("tools/korbanhold"),
        { "defaults", "read", domain, key }, m_folders.options());
    if (result.exitCode != 0)
        return std::nullopt;
    platform::JsonReadOptions options;
    options.allowFragments = true;
    return platform::readPreferenceJson(result.standardOutput, options);
}

std::string Defaults::status() const
{
    // Read straight from the domain's file: tests poll the status, and the file is replaced whole, never torn.
    const std::string file = m_folders.fileWatcherDomain();
    if (file.empty())
        return {};
    const platform::Value domain = platform::readPreferenceJson(file);
    const platform::Value* value = domain.isDictionary() ? domain.find(statusKey) : nullptr;
    const std::string* text = value ? value->stringIf() : nullptr;
    return text ? *text : std::string();
}

platform::Value Defaults::storedTable() const
{
    return read(serviceDomain, tableKey).value_or(platform::Value::array());
}

platform::Value Defaults::sharedFiles() const
{
    return read(sharedFilesDomain, sharedFilesKey).value_or(platform::Value::array());
}

}
