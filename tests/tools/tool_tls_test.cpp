#include "support/openssl_server.h"
#include "support/tool.h"

#include <gtest/gtest.h>

#include <regex>
#include <sstream>

namespace {

using tav_test::CertificateSpec;
using tav_test::Identity;
using tav_test::OpensslServer;
using tav_test::ServerSettings;
using tav_test::ToolRig;
using tav_test::ToolRun;

constexpr long day = 24 * 3600;

/// A root, and what it signs.
struct Authority {
    Identity const root{CertificateSpec::ca("Test root")};
    Identity const middle{CertificateSpec::ca("Test middle"), &root};
};

ServerSettings serverOf(std::vector<Identity const *> chain, int version = 3, std::string clients = {}) {
    ServerSettings settings;
    settings.chain = std::move(chain);
    settings.version = version;
    settings.clients = std::move(clients);
    return settings;
}

/// A server with this chain, and the tool's look at it.
ToolRun lookAt(ToolRig const & rig, ServerSettings const & settings, std::string const & arguments,
               std::vector<std::string> const & more = {}) {
    OpensslServer const server(settings, more);
    return rig.run("tls localhost:" + std::to_string(server.port()) + " " + arguments);
}

bool has(ToolRun const & run, std::string const & text) {
    return run.out.find(text) != std::string::npos;
}

/// What differs from run to run, out of sight.
std::string masked(std::string text) {
    struct Mask {
        char const * what;
        char const * by;
    };
    for (Mask const & mask :
         {Mask{"[0-9a-f]{64}", "HASH"}, Mask{"[0-9.]+ ms", "N ms"}, Mask{"[0-9]{4}-[0-9-]+ [0-9:]+Z", "TIME"},
          Mask{"[0-9]+ days?", "N days"}, Mask{"address      [0-9.:]+\n", "address      ADDRESS\n"}}) {
        text = std::regex_replace(text, std::regex(mask.what), mask.by);
    }
    return text;
}

/// The block of the page that begins with this line.
std::string blockOfPage(std::string const & first) {
    std::istringstream page(tav_test::contentOf(std::string(TAV_SOURCE_DIR) + "/docs/tool/tls.md"));
    std::string block;
    bool inside = false;
    for (std::string line; std::getline(page, line);) {
        if (inside && line == "```") {
            return block;
        }
        if (inside) {
            block += line + "\n";
        }
        inside = inside || line == first;
    }
    return block;
}

TEST(ToolTls, ChainThatIsTrustedIsGoodAndThePageShowsIt) {
    Authority const authority;
    Identity const server(CertificateSpec(), &authority.middle);
    ToolRig const rig(TAV_TOOL);
    rig.file("root.pem", authority.root.pem());
    ToolRun const run = lookAt(rig, serverOf({&server, &authority.middle}), "--ca root.pem");
    EXPECT_EQ(run.code, 0) << run.out << run.err;
    EXPECT_EQ(masked(run.out), masked(blockOfPage("$ tav tls localhost:7443 --ca root.pem")));
}

TEST(ToolTls, EachFaultIsToldWithWhatMendsIt) {
    Authority const authority;
    Identity const stranger(CertificateSpec::ca("Stranger"));
    Identity const good(CertificateSpec(), &authority.middle);
    Identity const late(CertificateSpec().valid(-2 * day, -day), &authority.root);
    Identity const early(CertificateSpec().valid(day, 2 * day), &authority.root);
    Identity const client(CertificateSpec().forPurpose("clientAuth"), &authority.root);
    Identity const other(CertificateSpec().withNames("DNS:example.com"), &authority.root);
    Identity const own{CertificateSpec()};
    ToolRig const rig(TAV_TOOL);
    rig.file("root.pem", authority.root.pem());
    rig.file("stranger.pem", stranger.pem());
    struct Case {
        std::vector<Identity const *> chain;
        char const * arguments;
        char const * said;
        char const * mend;
    };
    for (Case const & one :
         {Case{{&late},
               "--ca root.pem",
               "error: certificate 0: certificate has expired (10)",
               "mend: renew the certificate"},
          Case{{&early},
               "--ca root.pem",
               "error: certificate 0: certificate is not yet valid (9)",
               "mend: wait for it"},
          Case{{&client}, "--ca root.pem", "(26)", "mend: it is for another use"},
          Case{{&good}, "--ca root.pem", "(20)", "have the server send the certificates between"},
          Case{{&good, &authority.middle},
               "--ca stranger.pem",
               "(20)",
               "mend: trust the authority that issued it (--ca)"},
          Case{{&own}, "--ca root.pem", "(18)", "mend: trust this certificate itself"},
          Case{{&good, &authority.middle, &authority.root},
               "--ca stranger.pem",
               "(19)",
               "mend: trust the root that signs it"},
          Case{{&other},
               "--ca root.pem",
               "error: the certificate is not for localhost",
               "connect by one of its names, example.com"},
          Case{{&good, &authority.middle},
               "--ca root.pem --name elsewhere",
               "error: the certificate is not for elsewhere",
               "or have elsewhere added"}}) {
        ToolRun const run = lookAt(rig, serverOf(one.chain), one.arguments);
        EXPECT_EQ(run.code, 1) << one.said << run.out << run.err;
        EXPECT_TRUE(has(run, one.said)) << one.said << "\n" << run.out;
        EXPECT_TRUE(has(run, one.mend)) << one.mend << "\n" << run.out;
    }
}

TEST(ToolTls, ProtocolAndNameAreThoseOfTheConnection) {
    Authority const authority;
    Identity const server(CertificateSpec(), &authority.root);
    ToolRig const rig(TAV_TOOL);
    rig.file("root.pem", authority.root.pem());
    EXPECT_TRUE(has(lookAt(rig, serverOf({&server}, 2), "--ca root.pem"), "protocol     TLSv1.2\n"));
    EXPECT_TRUE(has(lookAt(rig, serverOf({&server}, 3), "--ca root.pem"), "protocol     TLSv1.3\n"));
    ToolRun const named = lookAt(rig, serverOf({&server}), "--ca root.pem --name 127.0.0.1");
    EXPECT_EQ(named.code, 0) << named.out;
    EXPECT_TRUE(has(named, "name         127.0.0.1 matches\n")) << named.out;
}

TEST(ToolTls, ClientCertificateThatIsWantedIsToldAndGiven) {
    Authority const authority;
    Identity const server(CertificateSpec(), &authority.root);
    Identity const client(CertificateSpec().named("ann").forPurpose("clientAuth"), &authority.root);
    ToolRig const rig(TAV_TOOL);
    rig.file("root.pem", authority.root.pem());
    rig.file("client.pem", client.pem() + client.keyPem());
    for (int const version : {2, 3}) {
        ServerSettings const settings = serverOf({&server}, version, rig.path("root.pem"));
        ToolRun const without = lookAt(rig, settings, "--ca root.pem");
        EXPECT_EQ(without.code, 3) << version << without.out << without.err;
        EXPECT_NE(without.err.find(
                      "mend: the server asks for a certificate of the client's: --cert FILE --key FILE"),
                  std::string::npos)
            << without.err;
        ToolRun const with = lookAt(rig, settings, "--ca root.pem --cert client.pem");
        EXPECT_EQ(with.code, 0) << version << with.out << with.err;
        EXPECT_TRUE(has(with, "client       the server asks for a certificate\n")) << with.out;
    }
}

TEST(ToolTls, JsonIsOneObjectWithAllOfIt) {
    Identity const own{CertificateSpec()};
    ToolRig const rig(TAV_TOOL);
    OpensslServer const server(serverOf({&own}));
    ToolRun const run =
        rig.shell("$TAV tls --json localhost:" + std::to_string(server.port()) +
                  " | python3 -c 'import json, sys\n"
                  "all = json.load(sys.stdin)\n"
                  "print(all[\"protocol\"], all[\"name_matches\"], all[\"errors\"][0][\"code\"], "
                  "len(all[\"chain\"]), all[\"chain\"][0][\"names\"], all[\"handshake_ms\"] > 0)'");
    EXPECT_EQ(run.out, "TLSv1.3 True 18 1 ['localhost', '127.0.0.1', '::1'] True\n") << run.err;
}

TEST(ToolTls, WhatIsNoTlsIsTheNetworksFault) {
    ToolRig const rig(TAV_TOOL);
    ToolRun const refused = rig.run("tls localhost:1");
    EXPECT_EQ(refused.code, 3);
    EXPECT_EQ(refused.err, "tav: localhost:1: can't connect: Connection refused\n"
                           "    mend: nobody listens there: check the port, and that the server runs\n");
    ToolRun const unknown = rig.run("tls name.invalid:443");
    EXPECT_EQ(unknown.code, 3);
    EXPECT_NE(unknown.err.find("name.invalid:443: the name can't be looked up"), std::string::npos)
        << unknown.err;
    // A server that says something else, and one that says nothing.
    for (std::string const answer : {"conn.sendall(b\"HTTP/1.0 400 no\\r\\n\\r\\n\")", "time.sleep(0)"}) {
        ToolRun const run =
            rig.shell("rm -f port; python3 -c '\nimport socket, time\nlistener = "
                      "socket.create_server((\"127.0.0.1\", 0))\n"
                      "print(listener.getsockname()[1], flush=True)\nconn = listener.accept()[0]\n" +
                      answer +
                      "\nconn.recv(100000)\nlistener.accept()' >port & server=$!\n"
                      "while [ ! -s port ]; do sleep 0.01; done\n"
                      "$TAV tls --timeout 500 127.0.0.1:$(cat port); echo $?; kill $server");
        EXPECT_EQ(run.out, "3\n") << run.err;
        EXPECT_NE(run.err.find("no TLS comes about"), std::string::npos) << run.err;
        EXPECT_NE(run.err.find("mend: what answers "), std::string::npos) << run.err;
    }
}

TEST(ToolTls, ServerThatHasBegunToAnswerIsSlowAndNoStranger) {
    ToolRig const rig(TAV_TOOL);
    ToolRun const run =
        rig.shell("rm -f port; python3 -c '\nimport socket\n"
                  "listener = socket.create_server((\"127.0.0.1\", 0))\n"
                  "print(listener.getsockname()[1], flush=True)\nconn = listener.accept()[0]\n"
                  "conn.sendall(bytes.fromhex(\"160303007a02\"))\nconn.recv(100000)\n"
                  "listener.accept()' >port & server=$!\n"
                  "while [ ! -s port ]; do sleep 0.01; done\n"
                  "$TAV tls --timeout 400 --json 127.0.0.1:$(cat port); echo $?; kill $server");
    EXPECT_NE(run.err.find("mend: the server answers, and is slow: --timeout gives it longer"),
              std::string::npos)
        << run.err;
    EXPECT_NE(run.out.find("no TLS comes about within 400 ms\",\"mend\":\"the server answers, and is slow: "
                           "--timeout gives it longer\",\"code\":3}\n3\n"),
              std::string::npos)
        << run.out;
}

TEST(ToolTls, NamesAndDaysOfACertificateAreThoseThatItHas) {
    Authority const authority;
    Identity const other(CertificateSpec().withNames("email:ann@example.com,URI:im:ann"), &authority.root);
    Identity const late(CertificateSpec().valid(-3 * day - 60, -day - 60), &authority.root);
    ToolRig const rig(TAV_TOOL);
    rig.file("root.pem", authority.root.pem());
    EXPECT_TRUE(has(lookAt(rig, serverOf({&other}), "--ca root.pem"),
                    "    names        email:ann@example.com, URI:im:ann\n"));
    EXPECT_TRUE(has(lookAt(rig, serverOf({&late}), "--ca root.pem"), ", expired 1 day ago\n"));
}

TEST(ToolTls, PlaceAndFilesThatAreWrongAreBadUse) {
    ToolRig const rig(TAV_TOOL);
    rig.file("no.pem", "nothing");
    for (std::string const arguments :
         {"localhost", ":443", "localhost:", "::1:443", "[::1]443", "localhost:1 --ca absent.pem",
          "localhost:1 --ca no.pem", "localhost:1 --cert no.pem", "localhost:1 --timeout 0",
          "localhost:1 --key no.pem", "localhost:1 --name ''", "localhost:99999", "localhost:0",
          "localhost:nonsense", ""}) {
        EXPECT_EQ(rig.run("tls " + arguments).code, 2) << arguments;
    }
}

TEST(ToolTls, WhatTheSafePolicyRefusesIsNotTrusted) {
    Authority const authority;
    Identity const unnamed(CertificateSpec().withNames(""), &authority.root);
    Identity const written(CertificateSpec().withNames("DNS:127.0.0.1"), &authority.root);
    Identity const partial(CertificateSpec().withNames("DNS:f*.example.com"), &authority.root);
    Identity const whole(CertificateSpec().withNames("DNS:*.example.com"), &authority.root);
    Identity const weak(CertificateSpec().withRsa(1024), &authority.root);
    Identity const good(CertificateSpec(), &authority.root);
    ToolRig const rig(TAV_TOOL);
    rig.file("root.pem", authority.root.pem());
    ToolRun const none = lookAt(rig, serverOf({&unnamed}), "--ca root.pem");
    EXPECT_EQ(none.code, 1) << none.out;
    EXPECT_TRUE(has(none, "error: the certificate is not for localhost\n")) << none.out;
    EXPECT_EQ(lookAt(rig, serverOf({&written}), "--ca root.pem --name 127.0.0.1").code, 1);
    EXPECT_EQ(lookAt(rig, serverOf({&partial}), "--ca root.pem --name foo.example.com").code, 1);
    EXPECT_EQ(lookAt(rig, serverOf({&whole}), "--ca root.pem --name foo.example.com").code, 0);
    ToolRun const key = lookAt(rig, serverOf({&weak}), "--ca root.pem");
    EXPECT_EQ(key.code, 1) << key.out;
    EXPECT_TRUE(has(key, "mend: have one made with a longer key\n")) << key.out;
    ToolRun const cipher =
        lookAt(rig, serverOf({&good}, 2), "--ca root.pem", {"-cipher", "ECDHE-ECDSA-AES256-SHA:@SECLEVEL=0"});
    EXPECT_EQ(cipher.code, 1) << cipher.out << cipher.err;
    EXPECT_TRUE(has(cipher, "error: the server has neither a protocol nor a cipher of those that are safe"))
        << cipher.out;
}

TEST(ToolTls, ServerThatRefusesTheGivenCertificateIsNotGood) {
    Authority const authority;
    Identity const server(CertificateSpec(), &authority.root);
    Identity const stranger{CertificateSpec().named("ann").forPurpose("clientAuth")};
    ToolRig const rig(TAV_TOOL);
    rig.file("root.pem", authority.root.pem());
    rig.file("client.pem", stranger.pem() + stranger.keyPem());
    for (int const version : {2, 3}) {
        ToolRun const run = lookAt(rig, serverOf({&server}, version, rig.path("root.pem")),
                                   "--ca root.pem --cert client.pem");
        EXPECT_EQ(run.code, 3) << version << run.out;
        EXPECT_NE(run.err.find("mend: the server does not trust the certificate of --cert"),
                  std::string::npos)
            << run.err;
    }
}

} // namespace
