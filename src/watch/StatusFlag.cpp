#include "watch/StatusFlag.h"

namespace watch {

using platform::Value;

StatusFlag::StatusFlag(platform::UserDefaults& store, std::string domain, std::string key)
    : m_store(store)
    , m_domain(std::move(domain))
    , m_key(std::move(key))
    , m_path(store.pathOf(m_domain))
    , m_seen(currentVersion())
{
}

std::optional<platform::FileIdentity> StatusFlag::currentVersion() const
{
    int error = 0;
    return platform::identityOf(m_path, error);
}

bool StatusFlag::raised()
{
    const auto domain = m_store.persistentDomainForName(m_domain);
    const Value* status = domain ? domain->find(m_key) : nullptr;
    const std::string* text = status ? status->stringIf() : nullptr;
    return text && *text == "1";
}

void StatusFlag::raise()
{
    m_store.setPersistentDomain(Value::dictionary({ { m_key, Value("1") } }), m_domain);
    m_seen = currentVersion();
}

bool StatusFlag::writtenByOthers()
{
    auto version = currentVersion();
    if (version == m_seen)
        return false;
    m_seen = std::move(version);
    return true;
}

}
