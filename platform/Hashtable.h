// Hashtable: a table from text keys to text values.
#ifndef VELM_HASHTABLE_H
#define VELM_HASHTABLE_H

#include <cstddef>
#include <string>
#include <unordered_map>

// A table from text keys to text values. Putting a key again replaces its value.
class Hashtable {
public:
    void put(const std::string& key, const std::string& value) { m_values[key] = value; }
    // The value of `key`, or null when the key is absent. Valid until the key
    // is put again or removed.
    const char* get(const std::string& key) const {
        auto found = m_values.find(key);
        return found == m_values.end() ? nullptr : found->second.c_str();
    }
    bool containsKey(const std::string& key) const { return m_values.count(key) != 0; }
    // False when the key was absent.
    bool remove(const std::string& key) { return m_values.erase(key) != 0; }
    size_t size() const { return m_values.size(); }

private:
    std::unordered_map<std::string, std::string> m_values;
};

#endif
