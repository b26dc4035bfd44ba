#include "devserver/Faults.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

namespace devserver {

static constexpr std::array<std::pair<FaultKind, std::string_view>, 7> kindNames { {
    { FaultKind::ErrorJson, "error-json" },
    { FaultKind::ErrorHtml, "error-html" },
    { FaultKind::UnavailableJson, "unavailable-json" },
    { FaultKind::NotJson, "not-json" },
    { FaultKind::Delay, "delay" },
    { FaultKind::Drop, "drop" },
    { FaultKind::Withhold, "withhold" },
} };

std::string faultKindNames()
{
    std::string names;
    for (const auto& [kind, name] : kindNames)
        names += (names.empty() ? "" : ", ") + std::string(name);
    return names;
}

static std::string_view kindName(FaultKind kind)
{
    return std::find_if(kindNames.begin(), kindNames.end(), [&](const auto& entry) { return entry.first == kind; })
        ->second;
}

std::string Fault::name() const
{
    std::string text(kindName(kind));
    if (kind == FaultKind::Delay)
        text += ":" + std::to_string(delay.count());
    return text;
}

platform::Value Fault::toValue() const
{
    auto value = platform::Value::dictionary({ { "kind", kindName(kind) }, { "path", path },
        { "count", platform::Value::integer(count) } });
    if (kind == FaultKind::Delay)
        value.setObject(platform::Value::integer(delay.count()), "ms");
    return value;
}

static long long wholeNumber(const platform::Value& value, std::string_view field)
{
    if (const auto* number = value.numberIf(); number && !number->isFloatingPoint() && !number->isBoolean())
        return number->int64Value();
    if (const auto* text = value.stringIf()) {
        long long parsed = 0;
        const auto* end = text->data() + text->size();
        if (auto [stop, error] = std::from_chars(text->data(), end, parsed); error == std::errc() && stop == end)
            return parsed;
    }
    throw FaultError("the fault's \"" + std::string(field) + "\" is not a whole number");
}

Fault faultFromValue(const platform::Value& description)
{
    if (!description.isDictionary())
        throw FaultError("a fault is a JSON object");
    Fault fault;
    bool hasKind = false;
    bool hasDelay = false;
    for (const auto& [field, value] : description.entries()) {
        if (field == "kind") {
            const auto* name = value.stringIf();
            const auto* entry = std::find_if(kindNames.begin(), kindNames.end(),
                [&](const auto& candidate) { return name && candidate.second == *name; });
            if (entry == kindNames.end())
                throw FaultError("unknown fault kind " + value.description() + " (" + faultKindNames() + ")");
            fault.kind = entry->first;
            hasKind = true;
        } else if (field == "path") {
            if (!value.stringIf() || value.string().empty())
                throw FaultError("the fault's \"path\" is a method path or \"*\"");
            fault.path = value.string();
        } else if (field == "count") {
            const auto count = wholeNumber(value, field);
            if (count < 1 || count > 1'000'000'000)
                throw FaultError("the fault's \"count\" must be at least 1");
            fault.count = static_cast<int>(count);
        } else if (field == "ms") {
            const auto milliseconds = wholeNumber(value, field);
            if (milliseconds < 0 || milliseconds > 24 * 3600 * 1000)
                throw FaultError("the fault's \"ms\" must be between 0 and one day");
            fault.delay = std::chrono::milliseconds(milliseconds);
            hasDelay = true;
        } else {
            throw FaultError("unknown fault field \"" + field + "\" (kind, path, count, ms)");
        }
    }
    if (!hasKind)
        throw FaultError("the fault has no \"kind\"");
    if ((fault.kind == FaultKind::Delay) != hasDelay)
        throw FaultError("\"ms\" belongs to a fault of kind delay, and only there");
    return fault;
}

Fault faultFromText(std::string_view description)
{
    auto fields = platform::Value::dictionary();
    while (!description.empty()) {
        const auto comma = description.find(',');
        const auto field = description.substr(0, comma);
        const auto equals = field.find('=');
        if (equals == std::string_view::npos)
            throw FaultError("\"" + std::string(field) + "\" is not of the form name=value");
        fields.setObject(platform::Value(field.substr(equals + 1)), field.substr(0, equals));
        description = comma == std::string_view::npos ? std::string_view() : description.substr(comma + 1);
    }
    return faultFromValue(fields);
}

void FaultScript::add(Fault fault)
{
    std::lock_guard lock(m_mutex);
    m_faults.push_back(std::move(fault));
}

std::optional<Fault> FaultScript::take(std::string_view methodPath)
{
    std::lock_guard lock(m_mutex);
    const auto found = std::find_if(m_faults.begin(), m_faults.end(),
        [&](const Fault& fault) { return fault.path == everyMethod || fault.path == methodPath; });
    if (found == m_faults.end())
        return std::nullopt;
    Fault fault = *found;
    if (--found->count == 0)
        m_faults.erase(found);
    fault.count = 1;
    return fault;
}

std::vector<Fault> FaultScript::pending() const
{
    std::lock_guard lock(m_mutex);
    return { m_faults.begin(), m_faults.end() };
}

void FaultScript::clear()
{
    std::lock_guard lock(m_mutex);
    m_faults.clear();
}

}
