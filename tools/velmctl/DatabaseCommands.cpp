// The database commands: the private server (start, stop, status) and the schema (init, upgrade).
#include "AppProperties.h"
#include "CommandRegistry.h"
#include "CommandSupport.h"
#include "EmbeddedServer.h"
#include "Schema.h"

#include <cstdlib>

namespace velmctl {

namespace {

Value versionValue(const DatabaseSchema& schema) {
    return schema.version == DatabaseSchema::NONE ? Value::none() : Value::number(schema.version);
}

Outcome status(EmbeddedServer& server, Output& output) {
    bool running = server.running();
    DatabaseSchema schema;
    const char* database = nullptr;
    if (running) {
        Session session;
        Outcome opened = configureFile(server.configFile());
        if (opened.ok())
            opened = session.open();
        if (opened.ok())
            opened = schema.read(session);
        if (!opened.ok())
            return opened;
        database = velm::AppProperties::get("Services", "velm.sip.db");
    }
    output.field("running", Value::flag(running));
    output.field("socket_directory", server.directory());
    output.field("port", Value::number(std::atoll(EmbeddedServer::port())));
    output.field("data_directory", server.dataDirectory());
    output.field("configuration", server.configFile());
    output.field("location", database != nullptr ? Value(database) : Value::none());
    output.field("schema_version", versionValue(schema));
    // Not running is an answer, not a failure: the fields say it.
    return running ? Outcome() : Outcome{NOT_FOUND, ""};
}

Outcome server(const std::string& action, const Arguments& arguments, Output& output) {
    EmbeddedServer server(directory(arguments));
    if (action == "status")
        return status(server, output);
    Outcome outcome = action == "start" ? server.start() : server.stop();
    if (outcome.ok()) {
        output.note(outcome.message);
        outcome.message.clear();
    }
    return outcome;
}

Outcome init(Session& session, const SchemaFile& file, const DatabaseSchema& schema, Output& output) {
    if (schema.version == DatabaseSchema::UNVERSIONED) {
        output.note("already initialised, by an older schema without a version: nothing changed; "
                    "'velmctl db upgrade' brings it to version " + std::to_string(file.version));
    } else if (schema.version != DatabaseSchema::NONE) {
        output.note("already initialised: schema version " + std::to_string(schema.version) + ", nothing changed");
    } else {
        Outcome loaded = session.loadSchema(file.path);
        if (!loaded.ok())
            return loaded;
        output.note("schema " + file.path + " loaded");
        output.field("schema_version", Value::number(file.version));
        return loaded;
    }
    output.field("schema_version", versionValue(schema));
    return Outcome();
}

Outcome upgrade(Session& session, const SchemaFile& file, const DatabaseSchema& schema, Output& output) {
    if (schema.version == DatabaseSchema::NONE)
        return Outcome::failure(NOT_FOUND, "the database holds no schema: run 'velmctl db init'");
    if (schema.version > file.version)
        return Outcome::failure(BAD_INPUT, "the database's schema version " + std::to_string(schema.version) +
                                               " is newer than " + file.path + " (" + std::to_string(file.version) +
                                               "): nothing changed");
    if (schema.version == file.version) {
        output.note("schema version " + std::to_string(file.version) + " is up to date");
        output.field("schema_version", versionValue(schema));
        return Outcome();
    }
    std::vector<std::string> applied;
    std::vector<std::string> kept;
    Outcome outcome = upgradeSchema(session, file, applied, kept);
    if (!outcome.ok())
        return outcome;
    std::vector<Row> changes;
    for (const std::string& label : applied)
        changes.push_back({"applied", label});
    for (const std::string& label : kept)
        changes.push_back({"left as it is", label});
    output.table("upgraded from " + schema.text() + " to version " + std::to_string(file.version), {"change", "what"},
                 changes);
    output.field("schema_version", Value::number(file.version));
    return outcome;
}

Outcome database(const Arguments& arguments, Output& output) {
    std::vector<std::string> given;
    Outcome outcome =
        expectArguments(arguments, {"db action (start, stop, status, init, upgrade)"}, {}, given);
    const std::string action = outcome.ok() ? given[0] : "";
    if (action == "start" || action == "stop" || action == "status")
        return server(action, arguments, output);
    if (outcome.ok() && action != "init" && action != "upgrade")
        return usage("unknown db action '" + action + "'");
    SchemaFile file;
    DatabaseSchema schema;
    Session session;
    outcome = openSession(outcome, arguments, session);
    if (outcome.ok())
        outcome = file.read();
    if (outcome.ok())
        outcome = schema.read(session);
    if (!outcome.ok())
        return outcome;
    return action == "init" ? init(session, file, schema, output) : upgrade(session, file, schema, output);
}

const CommandRegistration DB("db",
    "  db start | stop              a private PostgreSQL server in DIR (default ~/.local/share/velmdb)\n"
    "  db status                    whether it runs, its socket directory, port, data directory,\n"
    "                               database and schema version (exit 1 when it does not run)\n"
    "  db init                      load the schema into the configured database, unless it holds one\n"
    "  db upgrade                   add what the schema file has and the database lacks, and record\n"
    "                               the file's schema version\n",
    database);

} // namespace

} // namespace velmctl
