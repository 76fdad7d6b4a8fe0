// The configuration store: the INI file read on first use, values set by hosts, and the database key.
#include "AppProperties.h"

#include <ini.h>

#include <cstdio>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <utility>

namespace velm {
namespace {

using Key = std::pair<std::string, std::string>;
using Values = std::map<Key, const std::string*>;

const char* const DEFAULT_CONFIG_FILE = "/etc/velm/velm.conf";

// Texts handed out by get() must outlive any later set() or load(), so every
// value ever stored is kept here until the process ends.
class Store {
public:
    const char* get(const char* section, const char* key) {
        ensureLoaded();
        std::shared_lock<std::shared_mutex> lock(m_mutex);
        auto found = m_values.find(Key(section, key));
        return found == m_values.end() ? nullptr : found->second->c_str();
    }

    void set(const char* section, const char* key, const char* value) {
        ensureLoaded();
        std::unique_lock<std::shared_mutex> lock(m_mutex);
        if (value == nullptr)
            m_values.erase(Key(section, key));
        else
            m_values[Key(section, key)] = keep(value);
    }

    bool load(const char* path) {
        std::map<Key, std::string> parsed;
        if (path == nullptr || ini_parse(path, &Store::collect, &parsed) != 0)
            return false;
        std::unique_lock<std::shared_mutex> lock(m_mutex);
        m_loaded = true;
        m_values.clear();
        for (auto& entry : parsed)
            m_values[entry.first] = keep(entry.second);
        return true;
    }

    void clear() {
        std::unique_lock<std::shared_mutex> lock(m_mutex);
        m_loaded = true;
        m_values.clear();
    }

private:
    static int collect(void* user, const char* section, const char* name, const char* value) {
        (*static_cast<std::map<Key, std::string>*>(user))[Key(section, name)] = value;
        return 1;
    }

    const std::string* keep(std::string value) {
        m_arena.push_back(std::move(value));
        return &m_arena.back();
    }

    void ensureLoaded() {
        {
            std::shared_lock<std::shared_mutex> lock(m_mutex);
            if (m_loaded)
                return;
        }
        const char* path = std::getenv("VELM_CONFIG");
        std::map<Key, std::string> parsed;
        if (path != nullptr && ini_parse(path, &Store::collect, &parsed) != 0)
            std::fprintf(stderr, "velm: cannot read configuration file %s\n", path);
        else if (path == nullptr)
            ini_parse(DEFAULT_CONFIG_FILE, &Store::collect, &parsed);

        std::unique_lock<std::shared_mutex> lock(m_mutex);
        if (m_loaded)
            return;
        m_loaded = true;
        for (auto& entry : parsed)
            m_values[entry.first] = keep(entry.second);
    }

    std::shared_mutex m_mutex;
    bool m_loaded = false;
    Values m_values;
    std::deque<std::string> m_arena;
};

Store& store() {
    static Store instance;
    return instance;
}

} // namespace

const char* AppProperties::get(const char* section, const char* key) {
    if (section == nullptr || key == nullptr)
        return nullptr;
    return store().get(section, key);
}

void AppProperties::set(const char* section, const char* key, const char* value) {
    if (section != nullptr && key != nullptr)
        store().set(section, key, value);
}

bool AppProperties::load(const char* path) {
    return store().load(path);
}

void AppProperties::clear() {
    store().clear();
}

bool AppProperties::getDatabaseKey(std::string& key) {
    key.clear();
    if (const char* file = get("Database", "PasswordFile")) {
        std::ifstream in(file);
        if (!in)
            return false;
        std::getline(in, key);
        if (!key.empty() && key.back() == '\r')
            key.pop_back();
        return true;
    }
    if (const char* env = std::getenv("VELM_DB_PASSWORD"))
        key = env;
    return true;
}

} // namespace velm
