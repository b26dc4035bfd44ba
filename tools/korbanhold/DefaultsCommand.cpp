#include "DefaultsCommand.h"

#include "Command.h"
#include "DomainFiles.h"

#include "platform/PreferenceJson.h"
#include "platform/UserDefaults.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <sstream>

namespace korbanhold {

namespace {

using platform::UserDefaults;
using platform::Value;

// Runs `work` with a store over the preferences folder. A name the store refuses as a domain name is a usage error.
template<typename Work>
std::function<void()> withStore(Work work)
{
    return [work] {
        auto store = preferencesStore();
        try {
            work(store);
        } catch (const platform::Exception& error) {
            failCommand(exitUsage, error.reason());
        }
    };
}

Value parseJson(const std::string& text)
{
    platform::JsonReadOptions options;
    options.allowFragments = true;
    try {
        return platform::readPreferenceJson(text, options);
    } catch (const platform::JsonError& error) {
        failCommand(exitUsage, "Not valid JSON: " + error.reason());
    }
}

Value parseDictionary(const std::string& text)
{
    Value domain = parseJson(text);
    if (!domain.isDictionary())
        failCommand(exitUsage, "A domain must be a JSON object (a dictionary)");
    return domain;
}

Value existingDomain(UserDefaults& store, const std::string& name)
{
    auto domain = store.persistentDomainForName(name);
    if (!domain)
        failCommand(exitFailure, "Domain " + name + " does not exist");
    return std::move(*domain);
}

void requireKey(const Value& domain, const std::string& key, const std::string& name)
{
    if (!domain.find(key))
        failCommand(exitFailure, "Key " + key + " does not exist in domain " + name);
}

void save(UserDefaults& store, const Value& domain, const std::string& name)
{
    store.setPersistentDomain(domain, name);
    // The store has logged why a write failed.
    if (!store.synchronize())
        throw CLI::RuntimeError(exitFailure);
}

std::string readInput(const std::string& file)
{
    if (file == "-")
        return std::string(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
    std::ifstream in(file, std::ios::binary);
    std::ostringstream text;
    if (!in || !(text << in.rdbuf()))
        failCommand(exitUsage, "Cannot read " + file);
    return text.str();
}

// The arguments of one subcommand outlive the parse: its callback keeps them.
struct Arguments {
    std::string domain;
    std::string key;
    std::string value;
    std::string json;
    std::string file;
    CLI::Option* keyOption = nullptr;
    CLI::Option* valueOption = nullptr;
    CLI::Option* jsonOption = nullptr;
    bool hasKey() const { return keyOption->count() > 0; }
};

CLI::App* addSubcommand(CLI::App& defaults, const char* name, const char* description, Arguments& arguments)
{
    auto* command = defaults.add_subcommand(name, description);
    command->add_option("domain", arguments.domain, "Domain name, e.g. Ulmaridon.Korbanhold")->required();
    return command;
}

void addDomains(CLI::App& defaults)
{
    defaults.add_subcommand("domains", "Print the names of the domains, one per line")
        ->callback(withStore([](UserDefaults& store) {
            for (const auto& name : store.persistentDomainNames())
                std::cout << name << '\n';
        }));
}

void addRead(CLI::App& defaults)
{
    auto arguments = std::make_shared<Arguments>();
    auto* command = addSubcommand(defaults, "read", "Print a domain, or the value of one key, as JSON", *arguments);
    arguments->keyOption = command->add_option("key", arguments->key, "Key");
    command->callback(withStore([arguments](UserDefaults& store) {
        const Value domain = existingDomain(store, arguments->domain);
        if (!arguments->hasKey())
            return printJson(domain);
        requireKey(domain, arguments->key, arguments->domain);
        printJson(*domain.find(arguments->key));
    }));
}

void addWrite(CLI::App& defaults)
{
    auto arguments = std::make_shared<Arguments>();
    auto* command = addSubcommand(defaults, "write",
        "Set a key to a string or, with --json, to a JSON value; with --json and no key, replace the whole domain",
        *arguments);
    arguments->keyOption = command->add_option("key", arguments->key, "Key");
    arguments->valueOption = command->add_option("value", arguments->value, "String value");
    arguments->jsonOption = command->add_option("--json", arguments->json, "JSON value (or the whole domain)");
    command->callback(withStore([arguments](UserDefaults& store) {
        const bool hasValue = arguments->valueOption->count() > 0;
        const bool hasJson = arguments->jsonOption->count() > 0;
        if (!arguments->hasKey()) {
            if (!hasJson)
                failCommand(exitUsage, "write needs a KEY and a VALUE, or --json with a whole domain");
            return save(store, parseDictionary(arguments->json), arguments->domain);
        }
        if (hasValue == hasJson)
            failCommand(exitUsage, "write needs either a VALUE or --json VALUE after the key");
        const Value value = hasJson ? parseJson(arguments->json) : Value(arguments->value);
        Value domain = store.persistentDomainForName(arguments->domain).value_or(Value::dictionary());
        domain.setObject(value, arguments->key);
        save(store, domain, arguments->domain);
    }));
}

void addDelete(CLI::App& defaults)
{
    auto arguments = std::make_shared<Arguments>();
    auto* command = addSubcommand(defaults, "delete", "Remove a domain, or one key of it", *arguments);
    arguments->keyOption = command->add_option("key", arguments->key, "Key");
    command->callback(withStore([arguments](UserDefaults& store) {
        if (!arguments->hasKey()) {
            // A domain file that is not valid reads as absent, but it is still there to be removed.
            const auto names = store.persistentDomainNames();
            if (std::find(names.begin(), names.end(), arguments->domain) == names.end())
                existingDomain(store, arguments->domain);
            store.removePersistentDomainForName(arguments->domain);
            if (!store.synchronize())
                throw CLI::RuntimeError(exitFailure);
            return;
        }
        Value domain = existingDomain(store, arguments->domain);
        requireKey(domain, arguments->key, arguments->domain);
        domain.removeObjectForKey(arguments->key);
        save(store, domain, arguments->domain);
    }));
}

void addImport(CLI::App& defaults)
{
    auto arguments = std::make_shared<Arguments>();
    auto* command = addSubcommand(defaults, "import", "Replace a domain by the JSON dictionary in a file", *arguments);
    command->add_option("file", arguments->file, "File to read, - for standard input")->required();
    command->callback(withStore([arguments](UserDefaults& store) {
        save(store, parseDictionary(readInput(arguments->file)), arguments->domain);
    }));
}

void addExport(CLI::App& defaults)
{
    auto arguments = std::make_shared<Arguments>();
    auto* command = addSubcommand(defaults, "export", "Print a domain as JSON, in the form import reads", *arguments);
    command->callback(
        withStore([arguments](UserDefaults& store) { printJson(existingDomain(store, arguments->domain)); }));
}

}

void addDefaultsCommand(CLI::App& app)
{
    auto* defaults = app.add_subcommand("defaults", "Read and write the preference domains");
    defaults->require_subcommand(1);
    addDomains(*defaults);
    addRead(*defaults);
    addWrite(*defaults);
    addDelete(*defaults);
    addImport(*defaults);
    addExport(*defaults);
}

}
