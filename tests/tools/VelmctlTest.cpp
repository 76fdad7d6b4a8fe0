// velmctl run as a program: command lines with their exit status and output, against a fresh database.
#include "AppProperties.h"
#include "Crypt.h"
#include "ProfileService.h"
#include "Provisioning.h"
#include "TempDirectory.h"
#include "TestServer.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

namespace {

struct Result {
    int status;
    std::string out, err;
};

std::string readFile(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

// Runs the velmctl of this build (tools/velmctl/velmctl beside the tests' directory) with `arguments`, which the
// shell reads: single-quote what must stay one word.
Result run(const std::string& scratch, const std::string& arguments) {
    char self[4096];
    ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    std::string build(self, length > 0 ? static_cast<size_t>(length) : 0);
    build = build.substr(0, build.rfind('/'));
    std::string command = build.substr(0, build.rfind('/')) + "/tools/velmctl/velmctl " + arguments + " >" + scratch +
                          "/out 2>" + scratch + "/err";
    int status = std::system(command.c_str());
    return Result{WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(scratch + "/out"), readFile(scratch + "/err")};
}

size_t skipBlanks(const std::string& text, size_t at) {
    return at == std::string::npos ? at : text.find_first_not_of(" \n", at);
}

// The end of the JSON value that starts at `at`, or npos when none does. Numbers are whole, as velmctl writes them.
size_t jsonValue(const std::string& text, size_t at) {
    at = skipBlanks(text, at);
    if (at == std::string::npos)
        return at;
    if (text[at] == '"') {
        for (++at; at < text.size() && text[at] != '"'; ++at)
            if (static_cast<unsigned char>(text[at]) < 0x20)
                return std::string::npos;
            else if (text[at] == '\\')
                ++at;
        return at < text.size() ? at + 1 : std::string::npos;
    }
    if (text[at] == '{' || text[at] == '[') {
        const bool object = text[at] == '{';
        const char close = object ? '}' : ']';
        at = skipBlanks(text, at + 1);
        if (at != std::string::npos && text[at] == close)
            return at + 1;
        for (;;) {
            if (object) {
                if (at == std::string::npos || text[at] != '"')
                    return std::string::npos;
                at = skipBlanks(text, jsonValue(text, at));
                if (at == std::string::npos || text[at++] != ':')
                    return std::string::npos;
            }
            at = skipBlanks(text, jsonValue(text, at));
            if (at == std::string::npos || (text[at] != ',' && text[at] != close))
                return std::string::npos;
            if (text[at] == close)
                return at + 1;
            at = skipBlanks(text, at + 1);
        }
    }
    for (const std::string word : {"true", "false", "null"})
        if (text.compare(at, word.size(), word) == 0)
            return at + word.size();
    size_t digits = at + (text[at] == '-' ? 1 : 0);
    size_t end = text.find_first_not_of("0123456789", digits);
    return end != digits ? end : std::string::npos;
}

// One step of a session: `sql` is run first; with no command it is a query whose one value must be `expected`.
// Otherwise `expected` is part of standard output on success, and follows "velmctl: " on standard error on failure.
struct Step {
    const char* sql;
    std::string command;
    int status;
    std::string expected;
};

} // namespace

class Velmctl : public testing::Test {
protected:
    void SetUp() override {
        m_config = m_scratch.write("velm.conf", "[Database]\nProxyDatabaseUser = velm\n[Services]\nvelm.sip.db = " +
                                                    db.name() + "\n[Crypt]\nKeyFile = " +
                                                    m_scratch.write("key", std::string(32, 'k')) + "\n");
    }

    Result velm(const std::string& arguments) { return run(m_scratch.path(), "--config " + m_config + " " + arguments); }

    void walk(const std::vector<Step>& steps) {
        for (const Step& step : steps) {
            if (step.sql != nullptr && step.command.empty()) {
                EXPECT_EQ(step.expected, db.admin().value(step.sql)) << step.sql;
                continue;
            }
            if (step.sql != nullptr)
                db.admin().exec(step.sql);
            SCOPED_TRACE(step.command);
            Result run = velm(step.command);
            EXPECT_EQ(step.status, run.status) << run.err;
            // Scripts get one JSON document on standard output, failures included, and nothing on standard error.
            if (step.command.rfind("--json ", 0) == 0) {
                size_t end = jsonValue(run.out, 0);
                EXPECT_TRUE(end != std::string::npos && skipBlanks(run.out, end) == std::string::npos) << run.out;
                EXPECT_EQ("", run.err);
                EXPECT_TRUE(step.status == 0 ||
                            run.out.find("{\"error\":{\"code\":" + std::to_string(step.status) + ",") == 0) << run.out;
                EXPECT_NE(std::string::npos, run.out.find(step.expected)) << run.out;
                continue;
            }
            if (step.status != 0) {
                EXPECT_EQ(0u, run.err.find("velmctl: " + step.expected)) << run.err;
                // Bad input is one line, or one line and the usage text, and nothing on standard output.
                size_t usage = run.err.find("\nusage: velmctl [--json]");
                if (step.status == 2) {
                    EXPECT_EQ(usage != std::string::npos ? usage : run.err.size() - 1, run.err.find('\n')) << run.err;
                    EXPECT_EQ("", run.out);
                }
                continue;
            }
            EXPECT_NE(std::string::npos, run.out.find(step.expected)) << run.out << run.err;
        }
    }

    velmtest::TestDatabase db;
    velmtest::TempDirectory m_scratch;
    std::string m_config;
};

TEST_F(Velmctl, CommandsAnswerWithTheirStatusAndOutput) {
    const std::string aor = "register alice@example.com '<sip:alice@192.0.2.10>' ";
    walk({
        {nullptr, "", 2, "no command given"}, {nullptr, "frobnicate", 2, "unknown command 'frobnicate'"},
        {nullptr, "--json frobnicate", 2, "\"name\":\"bad_input\",\"message\":\"unknown command 'frobnicate'\"}}\n"},
        {nullptr, "help frobnicate", 2, "unknown command 'frobnicate'"},
        {nullptr, "help", 0, "Exit status: 0 success, 1 not found, 2 bad input, 3 database error."},
        {nullptr, "--version", 0, "velmctl 1."}, {nullptr, "help db", 0, "  db upgrade  "},
        {nullptr, "subscriber --help", 0, "  subscriber list [--like PATTERN] [--limit N] [--offset N]\n"},
        {nullptr, "--json contacts nobody@example.com", 1, "no public address nobody@example.com"},
        {nullptr, "subscriber add alice@example.com --password 's3cret'", 0, ""},
        {nullptr, "subscriber add alice@example.com", 2, "alice@example.com already exists"},
        {nullptr, "unregister alice@example.com '<sip:alice@192.0.2.99>'", 1, "alice@example.com: no contacts are registered\n"},
        // Bad input is one line that says what is wrong and changes nothing.
        {nullptr, "register alice '<sip:alice@192.0.2.10>'", 2, "'alice' is not an address of record: expected user@domain\n"},
        {nullptr, "--json register alice '<sip:alice@192.0.2.10>'", 2, "expected user@domain\"}}\n"},
        {nullptr, "register alice@example.com 'http://192.0.2.10/'", 2, "contact 'http://192.0.2.10/': not a SIP "},
        {nullptr, "unregister alice@example.com '<sip:alice@192.0.2.10'", 2, "contact '<sip:alice@192.0.2.10' has no closing '>'\n"},
        {nullptr, aor + "--expires -30", 2, "--expires must not be negative (got -30)\n"},
        {nullptr, aor + "--expires 99999999999999999999999", 2, "--expires '99999999999999999999999' is out of range"},
        {nullptr, aor + "--expires 4294967296", 2, "--expires '4294967296' is out of range: 0 to 4294967295\n"},
        {nullptr, aor + "--cseq 2147483648", 2, "--cseq '2147483648' is out"},
        {nullptr, aor + "--cseq ' 7'", 2, "--cseq ' 7' is not a whole number\n"},
        {nullptr, aor + "--expires -", 2, "--expires '-' is not a whole"},
        {nullptr, aor + "--q 1e-1", 2, "--q '1e-1' is not a qvalue"},
        {nullptr, aor + "--q 1.001", 2, "--q '1.001' is not a qvalue between 0 and 1\n"},
        {nullptr, aor + "--q .5", 2, "--q '.5' is not a qvalue"},
        {nullptr, aor + "--q 0.", 2, "--q '0.' is not a qvalue"},
        // Bytes that are not UTF-8 (octal, as the shell's printf takes them): a stray continuation byte, an
        // overlong '/', a surrogate, a code point above U+10FFFF, a cut-off sequence.
        {nullptr, "register alice@example.com \"$(printf '<sip:al\\200ice@192.0.2.10>')\"", 2, "argument 5 is not UTF-8 text\n"},
        {nullptr, "register \"$(printf 'alice\\300\\257x@example.com')\" '<sip:alice@192.0.2.10>'", 2, "argument 4 is not"},
        {nullptr, aor + "--call-id \"$(printf '\\355\\240\\200')\"", 2, "argument 7 is not UTF-8"},
        {nullptr, "contacts \"$(printf 'alice@example.com\\364\\220\\200\\200')\"", 2, "argument 4 is not UTF-8"},
        {nullptr, "--json contacts \"$(printf 'alice@example.com\\342\\202')\"", 2, "argument 5 is not UTF-8"},
        {nullptr, "contacts alice@example.com --expires", 2, "option --expires needs a value"},
        {"SELECT count(*) FROM contact", "", 0, "0"}, {nullptr, "lookup nobody@example.com", 1, ""},
        {nullptr, "lookup alice", 2, ""},
        {"INSERT INTO identity SELECT sid, 'sip:alice@example.com', 'Alice' FROM subscriber", "lookup ALICE@Example.com",
         0, "\"Alice\" <sip:alice@example.com>"},
        {nullptr, "lookup alice@example.com", 0, "(no contacts)"},
        {nullptr, "--json lookup alice@example.com", 0, "\"auth_user\":\"alice@example.com\",\"active\":true,\"served_by\":\"this node\""},
        {nullptr, "register alice@example.com '<sip:alice@192.0.2.10:5060>' --q 0.5 --call-id c1 --cseq 7", 0,
         "registered: alice@example.com\n"},
        {nullptr, "register alice@example.com '<sip:alice@192.0.2.10:5060>' --call-id c1 --cseq 2147483647 --expires 4294967295",
         0, "refreshed: alice@example.com\n"},
        {"SELECT qvalue || ' ' || cseq || ' ' || call_id || ' ' || "
         "(expires - extract(epoch FROM now())::bigint > 4294967000) FROM contact",
         "", 0, "0.800000 2147483647 c1 true"},
        // Routing: the database, the conference server, the node's default and outbound routes.
        {nullptr, "route sip:Alice@example.com", 0, "source: database\nordering: sequential\nredirect: true\n"},
        {nullptr, "route sip:alice@example.com", 0, "sip:alice@192.0.2.10:5060  0.800000  true"},
        {nullptr, "--json route sip:alice@example.com", 0, "{\"source\":\"database\",\"ordering\":\"sequential\",\"redirect\":true,"},
        {nullptr, "route sip:nobody@example.com", 1, ""}, {nullptr, "route alice@example.com", 2, ""},
        {nullptr, "route sip:alice@example.com --internal", 2, ""},
        {nullptr, "register alice@example.com '<sip:alice@192.0.2.11>' --q 1.000 --call-id 'ç€😀' --cseq 0", 0, "registered"},
        {"SELECT call_id FROM contact WHERE address = 'sip:alice@192.0.2.11'", "", 0, "ç€😀"},
        {"INSERT INTO acp (acp_id, name) VALUES (1, 'bridges'); INSERT INTO extension (extension, acp_id, ext_type) "
         "VALUES ('7001', 1, 'c'), ('7002', 1, 'c')",
         "route sip:confsvr@example.com", 0, "source: conference server\nordering: redirect\n"},
        {nullptr, "--json conference status", 0, "{\"bridges\":2,\"in_use\":1,\"invalid\":0,\"free\":1,"},
        {nullptr, "route default", 1, ""}, {nullptr, "subscriber add gateway@example.com", 0, ""},
        {nullptr, "register gateway@example.com '<sip:gw@192.0.2.50>'", 0, ""},
        {"INSERT INTO system_parameters SELECT 'velm', 'system', 'parent_contact', csid::text FROM public_address "
         "WHERE handle = 'gateway'",
         "route default", 0, "sip:gw@192.0.2.50"},
        {nullptr, "route outbound sip:bob@far.example.org", 0, "allowed: false\n"},
        {"INSERT INTO system_parameters VALUES ('velm', 'system', 'outbound_allowed_external', 't'), "
         "('velm', 'system', 'outbound_proxy', 'proxy.example.net'), ('velm', 'system', 'outbound_direct', 'near.example.org')",
         "route outbound sip:bob@far.example.org", 0, "allowed: true\nproxy: proxy.example.net\n"},
        {nullptr, "--json route outbound sip:bob@near.example.org --internal", 0,
         "{\"allowed\":true,\"proxy\":\"(direct)\",\"lists\":[],\"messages\":[]}\n"},
        {nullptr, "route outbound mailto:bob@example.org", 2, ""},
        // Address maps, tried in order of priority; one that does not compile matches nothing.
        {"INSERT INTO contact_set (csid) VALUES (500), (600); INSERT INTO contact (csid, address, qvalue, permanent) "
         "VALUES (500, 'sip:$user@gw.example.com:$port', '0.800000', true), (600, 'sip:other@gw.example.com', '0.8', true); "
         "INSERT INTO address_map (handle, csid, pattern, priority) VALUES ('broken', 600, '^sip:(', 0), "
         "('intl', 500, '^sip:00', 1), ('rest', 600, '', 9)",
         "--json addressmap list", 0, "\"key\":\"broken-600\",\"pattern\":\"^sip:(\","},
        {nullptr, "--json addressmap list", 0, "does not compile: matches nothing\"},{\"priority\":1,\"key\":\"intl-500\""},
        {nullptr, "--json addressmap list", 0, "\"key\":\"rest-600\",\"pattern\":\"\","},
        {nullptr, "--json addressmap list", 0, "\"note\":\"empty: matches every request\"}]}]"},
        {nullptr, "addressmap test 'sip:0044@example.com:5080'", 0,
         "1      broken-600  ^sip:(   false\n  2      intl-500    ^sip:00  true\n"},
        {nullptr, "addressmap test 'sip:0044@example.com:5080'", 0, "sip:0044@gw.example.com:5080  0.800000  true"},
        {"DELETE FROM address_map WHERE handle = 'rest'", "addressmap test 'sip:1@example.com'", 1,
         "sip:1@example.com: no address map matches\n"},
        {nullptr, "addressmap test 'sip:example.com'", 2, ""}, {nullptr, "addressmap test", 2, "missing"},
        // Visitors: listed, the expired ones removed.
        {"INSERT INTO replica_extra (id, expires) VALUES (11, extract(epoch FROM now())::bigint - 5), "
         "(12, extract(epoch FROM now())::bigint + 600)",
         "--json visitor list", 0, "{\"sid\":11,\"expires_in\":-"},
        {nullptr, "visitor expire", 0, "removed 1 expired visitor(s)"},
        {"SELECT string_agg(id::text, ',') FROM replica_extra", "", 0, "12"}, {nullptr, "visitor", 2, ""},
        {nullptr, "visitor forget", 2, "unknown visitor action 'forget'"}, {nullptr, "visitor list extra", 2, ""},
        // Policy and configuration answers.
        {"INSERT INTO trusted_host (name, perform_orig_proc) VALUES ('gw.example.com', true); "
         "INSERT INTO domain_access (direction, sip_domain, domain_action) VALUES ('i', 'evil.org', 'd'); "
         "INSERT INTO emergency_call_ids (address) VALUES ('911'); INSERT INTO system_parameters VALUES "
         "('velm', 'system', 'qos', '46'), ('proxy1', 'routing', 'mode', 'loose')",
         "--json policy trusted 192.0.2.1 gw.example.com", 0,
         "\"trusted\":true,\"matched\":\"gw.example.com\",\"perform_orig_proc\":true"},
        {nullptr, "--json policy trusted gw.example.com", 0, "\"trusted\":true"},
        {nullptr, "--json policy trusted 192.0.2.1", 0, "\"trusted\":false,\"matched\":null"},
        {nullptr, "--json policy domain evil.org", 0, "\"allowed\":false"},
        {nullptr, "--json policy domain example.org", 0, "\"allowed\":true"},
        {nullptr, "--json policy emergency 911", 0, "\"emergency\":true"},
        {nullptr, "--json policy emergency 9110", 0, "\"emergency\":false"},
        {nullptr, "--json config show", 0, "{\"setting\":\"qos\",\"value\":46}"},
        {nullptr, "--json config show --proxy proxy1", 0, "{\"scope\":\"routing\",\"name\":\"mode\",\"value\":\"loose\"}"},
        {nullptr, "policy trusted", 2, ""}, {nullptr, "policy colour red", 2, ""},
        // Listings page by page, sorted; counts; removal with all that is the subscriber's.
        {nullptr, "--json subscriber list --limit 1", 0,
         "{\"next_offset\":1,\"lists\":[{\"title\":\"subscribers\",\"rows\":[{\"sid\":1,\"auth_user\":\"alice@example.com\","
         "\"active\":true,\"type\":\"home\",\"password\":true,\"addresses\":\"alice@example.com\",\"contacts\":2}]}]"},
        {nullptr, "--json subscriber list --offset 1", 0,
         "{\"next_offset\":null,\"lists\":[{\"title\":\"subscribers\",\"rows\":[{\"sid\":2,\"auth_user\":\"gateway@"},
        {nullptr, "--json subscriber list --like 'GATE%'", 0, "\"rows\":[{\"sid\":2,\"auth_user\":\"gateway@"},
        {nullptr, "subscriber list --limit 0", 2, "--limit '0' is out of range: 1 to 100000\n"},
        {"UPDATE contact SET expires = 1795611600 WHERE address = 'sip:alice@192.0.2.11'", "registrations --expired", 0,
         "registration: alice@example.com\n"},
        {nullptr, "--json registrations --expired", 0,
         "\"expires_at\":\"2026-11-25T13:00:00Z\",\"cseq\":0,\"call_id\":\"ç€😀\",\"contact_header\":\"<sip:alice@192.0.2.11>\"}]}],"},
        {nullptr, "--json registrations --limit 1 --offset 1", 0,
         "{\"next_offset\":null,\"lists\":[{\"title\":\"registration\",\"aor\":\"gateway@example.com\",\"contacts\":[{"},
        {nullptr, "--json stats", 0,
         "{\"subscribers\":2,\"public_addresses\":2,\"contacts\":5,\"contacts_active\":2,\"contacts_inactive\":2,"
         "\"contacts_expired\":1,\"contacts_permanent\":2,\"visitors\":1,\"visitors_expired\":0,\"prefixes\":0,"
         "\"address_maps\":2,\"bridges\":2,\"bridges_free\":1,\"bridges_in_use\":1,\"bridges_invalid\":0,"},
        {nullptr, "--json subscriber remove nobody@example.com", 1, "no public address nobody@example.com"},
        {nullptr, "--json subscriber remove gateway@example.com", 0, "\"public_addresses\":1,\"contacts\":1}}"},
        {"SELECT count(*) FROM contact", "", 0, "4"},
        {"INSERT INTO public_address (handle, sip_domain, csid, primary_handle) VALUES ('gw', 'example.com', 500, true)",
         "subscriber remove gw@example.com", 2, "gw@example.com belongs to no subscriber (a routing contact set): not removed\n"},
        // The schema: loaded once, upgraded from an older one, with its version.
        {nullptr, "db init", 0, "already initialised: schema version "},
        {nullptr, "db upgrade", 0, " is up to date\n"},
        {"UPDATE velm_schema_version SET version = version + 1", "db upgrade", 2, "the database's schema version "},
        {"DROP TABLE velm_schema_version; DROP TABLE replica_extra; ALTER TABLE contact DROP COLUMN path_vector; "
         "DROP TRIGGER contact_id_catch_up ON contact",
         "--json db upgrade", 0, "{\"change\":\"applied\",\"what\":\"column contact.path_vector\"}"},
        {"SELECT count(*) FROM pg_trigger WHERE tgname = 'contact_id_catch_up'", "", 0, "1"},
        {"ALTER TABLE acp ALTER COLUMN sip_port TYPE bigint; UPDATE velm_schema_version SET version = 0", "db upgrade", 0,
         "left as it is  column acp.sip_port is bigint here, integer in the schema file\n"},
        {nullptr, "db init", 0, "already initialised: schema version "},
        {"ALTER TABLE domain_access RENAME TO lost", "policy domain evil.org", 3, ""},
    });
    std::string stored = db.admin().value("SELECT s_password FROM subscriber WHERE sid = (SELECT min(sid) FROM subscriber)");
    EXPECT_NE("s3cret", stored);
    velm::AppProperties::set("Crypt", "KeyFile", (m_scratch.path() + "/key").c_str());
    EXPECT_EQ("s3cret", Crypt::decrypt(stored));

    std::ofstream(m_config, std::ios::app) << "[LocationService]\nModuleFirst = true\nResolverModule = "
                                           << VELM_TEST_RESOLVER_MODULE << "\n";
    walk({{nullptr, "route sip:two@example.com", 0, "source: module\n"},
          {nullptr, "route sip:two@example.com", 0, "sip:second@192.0.2.2;transport=tcp"}});
    std::ofstream(m_config) << "[Database]\nProxyDatabaseUser = velm\n[Services]\nvelm.sip.db = no_such_db\n";
    walk({{nullptr, "contacts alice@example.com", 3, "cannot connect: "}});
}

TEST_F(Velmctl, PrefixCommandsEditTheMapAndRouteNumbers) {
    velmtest::Provisioning provisioning(db.admin());
    provisioning.subscriber(1);
    provisioning.contactSet(10, 1);
    provisioning.permanentContact(10, "sip:gw@192.0.2.1:5060");
    walk({
        {nullptr, "prefix add 555 10", 0, "added prefix '555' for contact set 10; prefix_map change counter now 1\n"},
        {nullptr, "prefix add 555 11", 2, "prefix '555' exists already (contact set 10): remove it first\n"},
        {nullptr, "prefix add 556 99", 1, "no contact set 99\n"},
        {nullptr, "prefix add \"5'5\" 10", 2, "prefix '5'5' must not contain blanks, quotes"},
        {nullptr, "prefix add 5561 10 --length 3", 2, "--length 3 is shorter than prefix '5561'"},
        {nullptr, "prefix add 556 ten", 2, "CSID 'ten' is not a whole number\n"},
        {nullptr, "prefix remove 556", 1, "no prefix '556'\n"},
        {nullptr, "prefix lookup 4441234@example.com", 1, "no prefix routes '4441234'\n"},
        {"SELECT count(*) FROM prefix_map", "", 0, "1"},
        {nullptr, "--json prefix list", 0, "\"rows\":[{\"prefix\":\"555\",\"csid\":10,\"total_length\":0}]"},
        {nullptr, "--json prefix lookup 5551234@example.com", 0,
         "{\"lists\":[{\"title\":\"routed by prefix to contact set 10 (sequential)\""},
        {nullptr, "--json prefix lookup 5551234@example.com", 0, "\"address\":\"sip:5551234@192.0.2.1:5060;\""},
        {nullptr, "prefix remove 555", 0, "removed prefix '555'; prefix_map change counter now 2\n"},
    });
}

TEST(VelmctlEmbedded, StartsAPrivateServerWhereTheDemoRunsAgainAndStopsIt) {
    velmtest::TempDirectory scratch;
    const std::string dir = scratch.path() + "/db";
    ASSERT_EQ(0, std::system(("chmod 755 " + scratch.path()).c_str()));
    Result started = run(scratch.path(), "--dir " + dir + " db start");
    EXPECT_EQ(0, started.status) << started.err;
    EXPECT_EQ("running in " + dir + "; configuration " + dir + "/velm.conf\n", started.out);
    Result status = run(scratch.path(), "--json --dir " + dir + " db status");
    EXPECT_EQ(0, status.status);
    std::string socket = dir;
    for (size_t slash = socket.find('/'); slash != std::string::npos; slash = socket.find('/', slash))
        socket.replace(slash, 1, "%2F");
    EXPECT_EQ(0u, status.out.find("{\"running\":true,\"socket_directory\":\"" + dir + "\",\"port\":5432,\"data_directory\":\"" +
                                  dir + "/data\",\"configuration\":\"" + dir + "/velm.conf\",\"location\":\"postgresql://" +
                                  socket + ":5432/velm\",\"schema_version\":"))
        << status.out;
    for (int round = 0; round < 2; ++round) {
        Result demo = run(scratch.path(), "--config " + dir + "/velm.conf demo");
        ASSERT_EQ(0, demo.status) << demo.err;
        EXPECT_EQ("", demo.err);
        for (const char* title : {"1. alice registers her desk phone", "3. bob registers",
                                  "5. alice's mobile unregisters; the desk phone becomes active"})
            EXPECT_NE(std::string::npos, demo.out.find(title)) << demo.out;
        std::string last = demo.out.substr(demo.out.find("5. alice"));
        EXPECT_NE(std::string::npos, last.find("sip:alice@192.0.2.10:5060  0.800000  true"));
        EXPECT_EQ(std::string::npos, last.find("192.0.2.20"));
    }
    Result json = run(scratch.path(), "--config " + dir + "/velm.conf --json contacts alice@demo.velm.test");
    EXPECT_EQ(0u, json.out.find("{\"lists\":[{\"title\":\"contacts\",\"aor\":\"alice@demo.velm.test\",\"contacts\":[{"));
    EXPECT_NE(std::string::npos, json.out.find("\"address\":\"sip:alice@192.0.2.10:5060\",\"qvalue\":\"0.800000\",\"active\":true"))
        << json.out;
    EXPECT_EQ(0, run(scratch.path(), "--dir " + dir + " db stop").status);
    Result stopped = run(scratch.path(), "--dir " + dir + " db status");
    EXPECT_EQ(1, stopped.status);
    EXPECT_EQ(0u, stopped.out.find("running: false\nsocket_directory: " + dir + "\n")) << stopped.out;
}

TEST_F(Velmctl, VisitorFetchRecordsWhatTheHomeNodeAnswered) {
    velmtest::ProfileService home(77);
    db.admin().exec("INSERT INTO system_parameters VALUES ('velm', 'system', 'top_url', '" + home.address() +
                    "'), ('velm', 'system', 'EdgeUsername', 'edge'), ('velm', 'system', 'EdgePassword', 'pw')");
    db.admin().exec("INSERT INTO local_parameters VALUES ('boot', 'system', 'replica_id', '1')");
    std::thread replicator([&] {
        if (!home.waitForRequest())
            return;
        velmtest::AdminConnection admin(db.name());
        velmtest::Provisioning provisioning(admin);
        provisioning.subscriber(77);
        provisioning.contactSet(77, 77);
        provisioning.publicAddress(77, "carol", "visited.example.com", 77, true);
        admin.exec("INSERT INTO velm_users VALUES (77, 2)");
    });
    Result fetch = velm("visitor fetch carol@visited.example.com");
    replicator.join();
    ASSERT_EQ(0, fetch.status) << fetch.err;
    EXPECT_NE(std::string::npos, fetch.out.find("another node (visiting)")) << fetch.out;
    EXPECT_NE(std::string::npos, fetch.out.find("recorded visitor")) << fetch.out;
    // Without a service address nothing can be fetched.
    walk({{"SELECT count(*) FROM replica_extra WHERE id = 77", "", 0, "1"},
          {"DELETE FROM system_parameters WHERE name = 'top_url'", "visitor fetch dave@visited.example.com", 1, ""}});
}

TEST_F(Velmctl, HostileArgumentsNeverRunAStatementOfTheirOwn) {
    // An argument cannot hold a NUL, and the kernel takes at most 128 KiB.
    const std::string drop = "'; DROP TABLE canary; --";
    const std::vector<std::string> values{"o'neil",          "back\\slash\\", "a;b", drop, "\\" + drop, "\xff\xfe" + drop,
                                          "\xc3" + drop, std::string(100000, 'x') + drop};
    // V stands for the value. Add a line for every new argument.
    const std::vector<std::string> commandLines{
        "subscriber add V@example.com", "subscriber add bob@example.com --password V", "register alice@example.com V",
        "register alice@example.com '<sip:alice@192.0.2.10>' --call-id V",
        "register alice@example.com '<sip:alice@192.0.2.10>' --q V",
        "register alice@example.com '<sip:alice@192.0.2.10>' --expires V",
        "register alice@example.com '<sip:alice@192.0.2.10>' --cseq V",
        "unregister alice@example.com V", "contacts alice@V", "lookup V@example.com",
        "route sip:alice@example.com --auth-user V", "route sip:alice@example.com --domain V",
    };
    db.admin().exec("CREATE TABLE canary (alive integer); INSERT INTO canary VALUES (1)");
    ASSERT_EQ(0, velm("subscriber add alice@example.com").status);
    int callIdsStored = 0;
    for (const std::string& line : commandLines)
        for (const std::string& value : values) {
            std::string quoted = "'";
            for (char c : value)
                quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
            std::string arguments = line;
            arguments.replace(arguments.find('V'), 1, quoted + "'");
            SCOPED_TRACE(line + " with " + value.substr(0, 40));
            Result run = velm(arguments);
            EXPECT_GE(run.status, 0);
            EXPECT_LE(run.status, 3) << run.err;
            ASSERT_EQ("1", db.admin().value("SELECT count(*) FROM canary"));
            if (run.status == 0 && line.find("--call-id") != std::string::npos) {
                EXPECT_TRUE(value == db.admin().value("SELECT call_id FROM contact"));
                ++callIdsStored;
                ASSERT_EQ(0, velm("unregister alice@example.com '<sip:alice@192.0.2.10>'").status);
            }
        }
    // Every value but the two that are not UTF-8 is a valid call id.
    EXPECT_EQ(6, callIdsStored);
}
