#include "AppProperties.h"
#include "Crypt.h"
#include "ProfileService.h"
#include "Provisioning.h"
#include "TestServer.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>
#include <thread>

namespace {

struct Result {
    int status;
    std::string out;
    std::string err;
};

std::string readFile(const std::string& path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// The velmctl of this build: tools/velmctl/velmctl next to the tests' directory.
std::string velmctl() {
    char self[4096];
    ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    std::string program(self, length > 0 ? static_cast<size_t>(length) : 0);
    std::string build = program.substr(0, program.rfind('/'));
    return build.substr(0, build.rfind('/')) + "/tools/velmctl/velmctl";
}

Result run(const std::string& scratch, const std::string& arguments) {
    std::string command = velmctl() + " " + arguments + " >" + scratch + "/out 2>" + scratch + "/err";
    int status = std::system(command.c_str());
    return Result{WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(scratch + "/out"), readFile(scratch + "/err")};
}

} // namespace

class Velmctl : public testing::Test {
protected:
    void SetUp() override {
        m_scratch = "/tmp/velmctl-test-" + std::to_string(getpid());
        ASSERT_EQ(0, std::system(("mkdir -p " + m_scratch).c_str()));
        std::ofstream key(m_scratch + "/key", std::ios::binary);
        key << std::string(32, 'k');
        key.close();
        m_config = m_scratch + "/velm.conf";
        std::ofstream config(m_config);
        config << "[Database]\nProxyDatabaseUser = velm\n[Services]\nvelm.sip.db = " << db.name()
               << "\n[Crypt]\nKeyFile = " << m_scratch << "/key\n";
    }
    void TearDown() override { std::system(("rm -rf " + m_scratch).c_str()); }

    // Runs velmctl with this test's configuration; single-quote the arguments.
    Result velm(const std::string& arguments) { return run(m_scratch, "--config " + m_config + " " + arguments); }
    std::string contactCount() { return db.admin().value("SELECT count(*) FROM contact"); }

    velmtest::TestDatabase db;
    std::string m_scratch;
    std::string m_config;
};

TEST_F(Velmctl, DemoShowsEveryStepAndCanRunAgain) {
    for (int round = 0; round < 2; ++round) {
        Result demo = velm("demo");
        ASSERT_EQ(0, demo.status) << demo.err;
        EXPECT_EQ("", demo.err);
        for (const char* title : {"1. alice registers her desk phone", "3. bob registers",
                                  "5. alice's mobile unregisters; the desk phone becomes active"})
            EXPECT_NE(std::string::npos, demo.out.find(title)) << demo.out;
        std::string last = demo.out.substr(demo.out.find("5. alice"));
        EXPECT_NE(std::string::npos, last.find("sip:alice@192.0.2.10:5060  0.800000  active"));
        EXPECT_EQ(std::string::npos, last.find("192.0.2.20"));
    }
    EXPECT_EQ("2", contactCount());

    Result json = velm("--json contacts alice@demo.velm.test");
    ASSERT_EQ(0, json.status) << json.err;
    EXPECT_EQ(0u, json.out.find("{\"lists\":[{\"title\":\"contacts\",\"aor\":\"alice@demo.velm.test\",\"contacts\":[{"));
    EXPECT_NE(std::string::npos, json.out.find("\"address\":\"sip:alice@192.0.2.10:5060\",\"qvalue\":\"0.800000\","
                                               "\"active\":true"));
}

TEST_F(Velmctl, BadInputIsOneLineThatSaysWhatIsWrongAndChangesNothing) {
    ASSERT_EQ(0, velm("subscriber add alice@example.com").status);
    struct Case {
        const char* arguments;
        const char* message;
    } cases[] = {
        {"register alice '<sip:alice@192.0.2.10>'",
         "velmctl: 'alice' is not an address of record: expected user@domain\n"},
        {"register alice@example.com 'http://192.0.2.10/'",
         "velmctl: contact 'http://192.0.2.10/': not a SIP "},
        {"register alice@example.com '<sip:alice@192.0.2.10>' --expires -30",
         "velmctl: --expires must not be negative (got -30)\n"},
        {"unregister alice@example.com '<sip:alice@192.0.2.10'", "velmctl: contact '<sip:alice@192.0.2.10' has no closing '>'\n"},
        {"register alice@example.com '<sip:alice@192.0.2.10>' --expires 99999999999999999999999",
         "velmctl: --expires '99999999999999999999999' is out of range"},
        {"register alice@example.com '<sip:alice@192.0.2.10>' --expires 4294967296",
         "velmctl: --expires '4294967296' is out of range: 0 to 4294967295\n"},
        {"register alice@example.com '<sip:alice@192.0.2.10>' --cseq 2147483648", "velmctl: --cseq '2147483648' is out"},
        {"register alice@example.com '<sip:alice@192.0.2.10>' --cseq ' 7'", "velmctl: --cseq ' 7' is not a whole number\n"},
        {"register alice@example.com '<sip:alice@192.0.2.10>' --expires -", "velmctl: --expires '-' is not a whole"},
        {"register alice@example.com '<sip:alice@192.0.2.10>' --q 1e-1", "velmctl: --q '1e-1' is not a qvalue"},
        {"register alice@example.com '<sip:alice@192.0.2.10>' --q 1.001",
         "velmctl: --q '1.001' is not a qvalue between 0 and 1\n"},
        {"register alice@example.com '<sip:alice@192.0.2.10>' --q .5", "velmctl: --q '.5' is not a qvalue"},
        {"register alice@example.com '<sip:alice@192.0.2.10>' --q 0.", "velmctl: --q '0.' is not a qvalue"},
        // Bytes that are not UTF-8 (octal, as the shell's printf takes them):
        // a stray continuation byte, an overlong '/', a surrogate, a code
        // point above U+10FFFF, a cut-off sequence.
        {"register alice@example.com \"$(printf '<sip:al\\200ice@192.0.2.10>')\"", "velmctl: argument 5 is not UTF-8 text\n"},
        {"register \"$(printf 'alice\\300\\257x@example.com')\" '<sip:alice@192.0.2.10>'", "velmctl: argument 4 is not"},
        {"register alice@example.com '<sip:alice@192.0.2.10>' --call-id \"$(printf '\\355\\240\\200')\"",
         "velmctl: argument 7 is not UTF-8"},
        {"contacts \"$(printf 'alice@example.com\\364\\220\\200\\200')\"", "velmctl: argument 4 is not UTF-8"},
        {"contacts \"$(printf 'alice@example.com\\342\\202')\"", "velmctl: argument 4 is not UTF-8"},
    };
    for (const Case& c : cases) {
        Result run = velm(c.arguments);
        EXPECT_EQ(2, run.status) << c.arguments;
        EXPECT_EQ(0u, run.err.find(c.message)) << run.err;
        EXPECT_EQ(1, std::count(run.err.begin(), run.err.end(), '\n')) << run.err;
        EXPECT_EQ("", run.out);
    }
    EXPECT_EQ("0", contactCount());
}

TEST_F(Velmctl, ExitStatusTellsNotFoundFromDatabaseErrors) {
    EXPECT_EQ(1, velm("contacts nobody@example.com").status);
    ASSERT_EQ(0, velm("subscriber add alice@example.com").status);
    EXPECT_EQ(2, velm("subscriber add alice@example.com").status);
    EXPECT_EQ(1, velm("unregister alice@example.com '<sip:alice@192.0.2.99>'").status);

    std::ofstream(m_config) << "[Database]\nProxyDatabaseUser = velm\n[Services]\nvelm.sip.db = no_such_db\n";
    Result run = velm("contacts alice@example.com");
    EXPECT_EQ(3, run.status);
    EXPECT_EQ(0u, run.err.find("velmctl: cannot connect: ")) << run.err;
}

TEST_F(Velmctl, RegisteringAgainRefreshesTheContact) {
    ASSERT_EQ(0, velm("subscriber add alice@example.com --password 's3cret'").status);
    std::string stored = db.admin().value("SELECT s_password FROM subscriber");
    EXPECT_NE("s3cret", stored);
    velm::AppProperties::set("Crypt", "KeyFile", (m_scratch + "/key").c_str());
    EXPECT_EQ("s3cret", Crypt::decrypt(stored));

    Result first = velm("register alice@example.com '<sip:alice@192.0.2.10:5060>' --q 0.5 --call-id c1 --cseq 7");
    ASSERT_EQ(0, first.status) << first.err;
    EXPECT_EQ(0u, first.out.find("registered: alice@example.com\n"));
    Result again = velm("register alice@example.com '<sip:alice@192.0.2.10:5060>' --call-id c1 --cseq 2147483647 "
                        "--expires 4294967295");
    ASSERT_EQ(0, again.status) << again.err;
    EXPECT_EQ(0u, again.out.find("refreshed: alice@example.com\n"));
    auto rows = db.admin().query("SELECT qvalue, cseq, call_id, expires - extract(epoch FROM now())::bigint > 4294967000 "
                                 "FROM contact");
    ASSERT_EQ(1u, rows.size());
    EXPECT_EQ((std::vector<std::string>{"0.800000", "2147483647", "c1", "t"}), rows[0]);

    Result text = velm("register alice@example.com '<sip:alice@192.0.2.11>' --q 1.000 --call-id 'ç€😀' --cseq 0");
    ASSERT_EQ(0, text.status) << text.err;
    EXPECT_EQ("ç€😀", db.admin().value("SELECT call_id FROM contact WHERE address = 'sip:alice@192.0.2.11'"));
}

TEST_F(Velmctl, AddressMapsAreListedAndTriedInOrder) {
    db.admin().exec("INSERT INTO contact_set (csid) VALUES (5), (6)");
    db.admin().exec("INSERT INTO contact (csid, address, qvalue, permanent) VALUES "
                    "(5, 'sip:$user@gw.example.com:$port', '0.800000', true), (6, 'sip:other@gw.example.com', '0.8', true)");
    db.admin().exec("INSERT INTO address_map (handle, csid, pattern, priority) VALUES ('broken', 6, '^sip:(', 0), "
                    "('intl', 5, '^sip:00', 1), ('rest', 6, '', 9)");
    Result list = velm("--json addressmap list");
    ASSERT_EQ(0, list.status) << list.err;
    for (const char* marked : {"\"key\":\"broken-6\",\"pattern\":\"^sip:(\"", "\"note\":\"does not compile: matches nothing\"",
                               "\"key\":\"rest-6\",\"pattern\":\"\"", "\"note\":\"empty: matches every request\""})
        EXPECT_NE(std::string::npos, list.out.find(marked)) << list.out;
    EXPECT_LT(list.out.find("broken-6"), list.out.find("intl-5"));

    Result routed = velm("addressmap test 'sip:0044@example.com:5080'");
    ASSERT_EQ(0, routed.status) << routed.err;
    EXPECT_NE(std::string::npos, routed.out.find("1      broken-6  ^sip:(   no match\n")) << routed.out;
    EXPECT_NE(std::string::npos, routed.out.find("2      intl-5    ^sip:00  match\n")) << routed.out;
    EXPECT_EQ(std::string::npos, routed.out.find("rest-6"));
    EXPECT_NE(std::string::npos, routed.out.find("sip:0044@gw.example.com:5080  0.800000  active"));

    db.admin().exec("DELETE FROM address_map WHERE handle = 'rest'");
    Result unmatched = velm("addressmap test 'sip:1@example.com'");
    EXPECT_EQ(1, unmatched.status);
    EXPECT_EQ("velmctl: sip:1@example.com: no address map matches\n", unmatched.err);
    EXPECT_EQ(2, velm("addressmap test 'sip:example.com'").status);
    EXPECT_EQ(2, velm("addressmap test").status);
}

TEST_F(Velmctl, PolicyAndConfigurationAnswers) {
    db.admin().exec("INSERT INTO trusted_host (name, perform_orig_proc) VALUES ('gw.example.com', true)");
    db.admin().exec("INSERT INTO domain_access (direction, sip_domain, domain_action) VALUES ('i', 'evil.org', 'd')");
    db.admin().exec("INSERT INTO emergency_call_ids (address) VALUES ('911')");
    db.admin().exec("INSERT INTO system_parameters VALUES ('velm', 'system', 'node_type', 'edge'), "
                    "('velm', 'system', 'qos', '46'), ('proxy1', 'routing', 'mode', 'loose')");
    struct Case {
        const char* arguments;
        const char* answer;
    } cases[] = {
        {"policy trusted 192.0.2.1 gw.example.com", "\"trusted\":\"yes\",\"matched\":\"gw.example.com\",\"perform_orig_proc\":\"yes\""},
        {"policy trusted gw.example.com", "\"trusted\":\"yes\""},
        {"policy trusted 192.0.2.1", "\"trusted\":\"no\""},
        {"policy domain evil.org", "\"inbound\":\"denied\""},
        {"policy domain example.org", "\"inbound\":\"allowed\""},
        {"policy emergency 911", "\"emergency\":\"yes\""},
        {"policy emergency 9110", "\"emergency\":\"no\""},
        {"config show", "{\"setting\":\"node_type\",\"value\":\"edge\"},{\"setting\":\"qos\",\"value\":\"46\"}"},
        {"config show --proxy proxy1", "{\"scope\":\"routing\",\"name\":\"mode\",\"value\":\"loose\"}"},
    };
    for (const Case& c : cases) {
        Result run = velm(std::string("--json ") + c.arguments);
        EXPECT_EQ(0, run.status) << c.arguments << ": " << run.err;
        EXPECT_NE(std::string::npos, run.out.find(c.answer)) << c.arguments << ": " << run.out;
    }
    EXPECT_EQ(2, velm("policy trusted").status);
    EXPECT_EQ(2, velm("policy colour red").status);
    db.admin().exec("ALTER TABLE domain_access RENAME TO lost");
    EXPECT_EQ(3, velm("policy domain evil.org").status);
}

TEST(VelmctlEmbedded, StartsAPrivateServerThatTheDemoUsesAndStopsIt) {
    const std::string scratch = "/tmp/velmctl-embedded-" + std::to_string(getpid());
    const std::string dir = scratch + "/db";
    ASSERT_EQ(0, std::system(("mkdir -p " + scratch + " && chmod 755 " + scratch).c_str()));
    Result started = run(scratch, "--dir " + dir + " db start");
    EXPECT_EQ(0, started.status) << started.err;
    EXPECT_EQ("running in " + dir + "; configuration " + dir + "/velm.conf\n", started.out);
    EXPECT_EQ(0, run(scratch, "--dir " + dir + " db status").status);

    Result demo = run(scratch, "--config " + dir + "/velm.conf demo");
    EXPECT_EQ(0, demo.status) << demo.err;
    EXPECT_NE(std::string::npos, demo.out.find("5. alice's mobile unregisters"));

    EXPECT_EQ(0, run(scratch, "--dir " + dir + " db stop").status);
    Result stopped = run(scratch, "--dir " + dir + " db status");
    EXPECT_EQ(1, stopped.status);
    EXPECT_EQ("not running (" + dir + ")\n", stopped.out);
    std::system(("rm -rf " + scratch).c_str());
}

TEST_F(Velmctl, LookupShowsWhatTheLibraryKnowsOfAnAddress) {
    ASSERT_EQ(0, velm("subscriber add alice@example.com").status);
    db.admin().exec("INSERT INTO identity SELECT sid, 'sip:alice@example.com', 'Alice' FROM subscriber");
    Result text = velm("lookup ALICE@Example.com");
    ASSERT_EQ(0, text.status) << text.err;
    for (const char* line : {"public address key:", "served by:", "this node", "\"Alice\" <sip:alice@example.com>",
                             "(no contacts)"})
        EXPECT_NE(std::string::npos, text.out.find(line)) << text.out;
    Result json = velm("--json lookup alice@example.com");
    ASSERT_EQ(0, json.status) << json.err;
    EXPECT_NE(std::string::npos, json.out.find("\"served by\":\"this node\"")) << json.out;
    EXPECT_EQ(1, velm("lookup nobody@example.com").status);
    EXPECT_EQ(2, velm("lookup alice").status);
}

TEST_F(Velmctl, VisitorsAreListedAndTheExpiredOnesRemoved) {
    long now = static_cast<long>(time(nullptr));
    db.admin().exec("INSERT INTO replica_extra (id, expires) VALUES (11, " + std::to_string(now - 5) + "), (12, " +
                    std::to_string(now + 600) + ")");
    Result list = velm("--json visitor list");
    ASSERT_EQ(0, list.status) << list.err;
    EXPECT_NE(std::string::npos, list.out.find("{\"SID\":\"11\"")) << list.out;
    EXPECT_NE(std::string::npos, list.out.find("{\"SID\":\"12\"")) << list.out;
    Result expire = velm("visitor expire");
    ASSERT_EQ(0, expire.status) << expire.err;
    EXPECT_NE(std::string::npos, expire.out.find("removed 1 expired visitor(s)")) << expire.out;
    EXPECT_EQ("12", db.admin().value("SELECT string_agg(id::text, ',') FROM replica_extra"));
    EXPECT_EQ(2, velm("visitor").status);
    EXPECT_EQ(2, velm("visitor forget").status);
    EXPECT_EQ(2, velm("visitor list extra").status);
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
    EXPECT_EQ("1", db.admin().value("SELECT count(*) FROM replica_extra WHERE id = 77"));

    // Without a service address nothing can be fetched.
    db.admin().exec("DELETE FROM system_parameters WHERE name = 'top_url'");
    EXPECT_EQ(1, velm("visitor fetch dave@visited.example.com").status);
}

TEST_F(Velmctl, RouteTellsWhereARequestGoesAndWhoSaidSo) {
    ASSERT_EQ(0, velm("subscriber add alice@example.com").status);
    ASSERT_EQ(0, velm("register alice@example.com '<sip:alice@192.0.2.10:5060>'").status);
    Result routed = velm("route sip:Alice@example.com");
    ASSERT_EQ(0, routed.status) << routed.err;
    EXPECT_NE(std::string::npos, routed.out.find("source: database\nordering: sequential\nredirect: true\n")) << routed.out;
    EXPECT_NE(std::string::npos, routed.out.find("sip:alice@192.0.2.10:5060  0.800000  active")) << routed.out;
    Result json = velm("--json route sip:alice@example.com");
    EXPECT_EQ(0u, json.out.find("{\"source\":\"database\",\"ordering\":\"sequential\",\"redirect\":true,")) << json.out;
    EXPECT_EQ(1, velm("route sip:nobody@example.com").status);
    EXPECT_EQ(2, velm("route alice@example.com").status);
    EXPECT_EQ(2, velm("route sip:alice@example.com --internal").status);

    db.admin().exec("INSERT INTO acp (acp_id, name) VALUES (1, 'bridges')");
    db.admin().exec("INSERT INTO extension (extension, acp_id, ext_type) VALUES ('7001', 1, 'c'), ('7002', 1, 'c')");
    Result bridge = velm("route sip:confsvr@example.com");
    ASSERT_EQ(0, bridge.status) << bridge.err;
    EXPECT_NE(std::string::npos, bridge.out.find("source: conference server\nordering: redirect\n")) << bridge.out;
    EXPECT_NE(std::string::npos, bridge.out.find("sip:7001@example.com")) << bridge.out;
    Result pool = velm("--json conference status");
    EXPECT_EQ(0u, pool.out.find("{\"bridges\":2,\"in_use\":1,\"invalid\":0,\"free\":1,")) << pool.out;

    std::ofstream(m_config, std::ios::app) << "[LocationService]\nModuleFirst = true\nResolverModule = "
                                           << VELM_TEST_RESOLVER_MODULE << "\n";
    Result module = velm("route sip:two@example.com");
    ASSERT_EQ(0, module.status) << module.err;
    EXPECT_NE(std::string::npos, module.out.find("source: module\n")) << module.out;
    EXPECT_NE(std::string::npos, module.out.find("sip:second@192.0.2.2;transport=tcp")) << module.out;
}

TEST_F(Velmctl, DefaultAndOutboundRoutesFollowTheNodesParameters) {
    EXPECT_EQ(1, velm("route default").status);
    ASSERT_EQ(0, velm("subscriber add gateway@example.com").status);
    ASSERT_EQ(0, velm("register gateway@example.com '<sip:gw@192.0.2.50>'").status);
    db.admin().exec("INSERT INTO system_parameters SELECT 'velm', 'system', 'parent_contact', csid::text "
                    "FROM public_address WHERE handle = 'gateway'");
    Result route = velm("route default");
    ASSERT_EQ(0, route.status) << route.err;
    EXPECT_NE(std::string::npos, route.out.find("sip:gw@192.0.2.50")) << route.out;

    Result refused = velm("route outbound sip:bob@far.example.org");
    ASSERT_EQ(0, refused.status) << refused.err;
    EXPECT_EQ("allowed: false\n", refused.out);
    db.admin().exec("INSERT INTO system_parameters VALUES ('velm', 'system', 'outbound_allowed_external', 't'), "
                    "('velm', 'system', 'outbound_proxy', 'proxy.example.net'), "
                    "('velm', 'system', 'outbound_direct', 'near.example.org')");
    EXPECT_EQ("allowed: true\nproxy: proxy.example.net\n", velm("route outbound sip:bob@far.example.org").out);
    EXPECT_EQ("{\"allowed\":true,\"proxy\":\"(direct)\",\"lists\":[],\"messages\":[]}\n",
              velm("--json route outbound sip:bob@near.example.org --internal").out);
    EXPECT_EQ(2, velm("route outbound mailto:bob@example.org").status);
}

TEST_F(Velmctl, HostileArgumentsNeverRunAStatementOfTheirOwn) {
    // An argument cannot hold a NUL, and the kernel takes at most 128 KiB.
    const std::string drop = "'; DROP TABLE canary; --";
    const std::vector<std::string> values{"o'neil",          "back\\slash\\", "a;b",
                                          drop,              "\\" + drop,     "\xff\xfe" + drop,
                                          "\xc3" + drop,     std::string(100000, 'x') + drop};
    // V stands for the value. Add a line for every new argument.
    const std::vector<std::string> commandLines{
        "subscriber add V@example.com",
        "subscriber add bob@example.com --password V",
        "register alice@example.com V",
        "register alice@example.com '<sip:alice@192.0.2.10>' --call-id V",
        "register alice@example.com '<sip:alice@192.0.2.10>' --q V",
        "register alice@example.com '<sip:alice@192.0.2.10>' --expires V",
        "register alice@example.com '<sip:alice@192.0.2.10>' --cseq V",
        "unregister alice@example.com V",
        "contacts alice@V",
        "lookup V@example.com",
        "route sip:alice@example.com --auth-user V",
        "route sip:alice@example.com --domain V",
    };
    db.admin().exec("CREATE TABLE canary (alive integer); INSERT INTO canary VALUES (1)");
    ASSERT_EQ(0, velm("subscriber add alice@example.com").status);
    int callIdsStored = 0;
    for (const std::string& line : commandLines)
        for (const std::string& value : values) {
            std::string quoted = "'";
            for (char c : value)
                quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
            quoted += "'";
            std::string arguments = line;
            arguments.replace(arguments.find('V'), 1, quoted);
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

TEST_F(Velmctl, PrefixCommandsEditTheMapAndRouteNumbers) {
    velmtest::Provisioning provisioning(db.admin());
    provisioning.subscriber(1);
    provisioning.contactSet(10, 1);
    provisioning.permanentContact(10, "sip:gw@192.0.2.1:5060");

    Result added = velm("prefix add 555 10");
    ASSERT_EQ(0, added.status) << added.err;
    EXPECT_EQ("added prefix '555' for contact set 10; prefix_map change counter now 1\n", added.out);
    struct Case {
        const char* arguments;
        int status;
        const char* message;
    } refused[] = {
        {"prefix add 555 11", 2, "velmctl: prefix '555' exists already (contact set 10): remove it first\n"},
        {"prefix add 556 99", 1, "velmctl: no contact set 99\n"},
        {"prefix add \"5'5\" 10", 2, "velmctl: prefix '5'5' must not contain blanks, quotes"},
        {"prefix add 5561 10 --length 3", 2, "velmctl: --length 3 is shorter than prefix '5561'"},
        {"prefix add 556 ten", 2, "velmctl: CSID 'ten' is not a whole number\n"},
        {"prefix remove 556", 1, "velmctl: no prefix '556'\n"},
        {"prefix lookup 4441234@example.com", 1, "velmctl: no prefix routes '4441234'\n"},
    };
    for (const Case& c : refused) {
        Result run = velm(c.arguments);
        EXPECT_EQ(c.status, run.status) << c.arguments;
        EXPECT_EQ(0u, run.err.find(c.message)) << run.err;
    }
    EXPECT_EQ("1", db.admin().value("SELECT count(*) FROM prefix_map"));

    // Nothing but the document on standard output.
    Result listed = velm("--json prefix list");
    ASSERT_EQ(0, listed.status) << listed.err;
    EXPECT_EQ(0u, listed.out.find("{\"lists\":[{\"title\":")) << listed.out;
    EXPECT_NE(std::string::npos, listed.out.find("\"rows\":[{\"prefix\":\"555\",\"csid\":\"10\",\"total_length\":\"0\"}]"))
        << listed.out;
    Result routed = velm("--json prefix lookup 5551234@example.com");
    ASSERT_EQ(0, routed.status) << routed.err;
    EXPECT_EQ(0u, routed.out.find("{\"lists\":[{\"title\":\"routed by prefix to contact set 10 (sequential)\"")) << routed.out;
    EXPECT_NE(std::string::npos, routed.out.find("\"address\":\"sip:5551234@192.0.2.1:5060;\"")) << routed.out;

    Result removed = velm("prefix remove 555");
    ASSERT_EQ(0, removed.status) << removed.err;
    EXPECT_EQ("removed prefix '555'; prefix_map change counter now 2\n", removed.out);
}
