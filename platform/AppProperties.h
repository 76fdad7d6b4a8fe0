// AppProperties: the hosting server's configuration, by section and key.
#ifndef VELM_APPPROPERTIES_H
#define VELM_APPPROPERTIES_H

#include <string>

namespace velm {

// The hosting server's configuration: values by section and key.
//
// Values come from an INI file read on first use: the file named by the
// environment variable VELM_CONFIG, else /etc/velm/velm.conf when it exists.
// Hosts and tests may load another file or set values directly; a value set
// here wins over the file. Returned texts stay valid for the life of the
// process, even after the value is replaced.
class AppProperties {
public:
    // The value of `key` in `section`, or null when the key is absent.
    static const char* get(const char* section, const char* key);

    // Sets a value; a null `value` removes the key.
    static void set(const char* section, const char* key, const char* value);

    // Replaces every value with the contents of an INI file; false (and
    // nothing replaced) when the file cannot be read or parsed.
    static bool load(const char* path);

    // Forgets every value, including those of the configuration file.
    static void clear();

    // The database password: the contents of the file named by
    // [Database] PasswordFile (first line, without the line end), else the
    // environment variable VELM_DB_PASSWORD, else empty. False when a
    // password file is configured but cannot be read. The password is never
    // traced.
    static bool getDatabaseKey(std::string& key);
};

} // namespace velm

#endif
