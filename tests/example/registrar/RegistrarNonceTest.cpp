// velm-registrar's signed nonces and its bounded table of nonce counts.
#include "NonceCounts.h"
#include "NonceSigner.h"

#include <gtest/gtest.h>

#include <string>

namespace registrar {
namespace {

TEST(RegistrarNonceTest, SignedNoncesCarryTheirExpiryAndAreOursAlone) {
    const NonceSigner signer(300);
    const NonceSigner restarted(300);
    const std::string nonce = signer.issue(1000);
    std::string altered = nonce;
    altered[10] = altered[10] == 'A' ? 'B' : 'A';
    struct Case {
        const NonceSigner& by;
        std::string nonce;
        long now;
        NonceSigner::Verdict verdict;
    };
    for (const Case& c : {Case{signer, nonce, 1000, NonceSigner::Verdict::valid},
                          Case{signer, nonce, 1300, NonceSigner::Verdict::valid},
                          Case{signer, nonce, 1301, NonceSigner::Verdict::stale},
                          Case{restarted, nonce, 1000, NonceSigner::Verdict::forged},
                          Case{signer, altered, 1000, NonceSigner::Verdict::forged},
                          Case{signer, nonce.substr(1), 1000, NonceSigner::Verdict::forged},
                          Case{signer, nonce + "AA", 1000, NonceSigner::Verdict::forged},
                          Case{signer, "not base64!", 1000, NonceSigner::Verdict::forged}}) {
        long expiry = 0;
        EXPECT_EQ(c.by.check(c.nonce, c.now, expiry), c.verdict) << c.nonce << " at " << c.now;
        if (c.verdict != NonceSigner::Verdict::forged) {
            EXPECT_EQ(expiry, 1300);
        }
    }
    EXPECT_NE(signer.issue(1000), nonce);
}

// Counts must rise per nonce. Two nonces fit: expired ones are dropped
// first, else the oldest is forgotten and refused from then on, as is any
// nonce expiring no later.
TEST(RegistrarNonceTest, CountsRiseAndForgottenNoncesAreRefused) {
    NonceCounts counts(2);
    struct Step {
        const char* nonce;
        unsigned long count;
        long expiry;
        long now;
        bool accepted;
    };
    for (const Step& s : {Step{"a", 1, 100, 0, true}, Step{"a", 1, 100, 0, false}, Step{"a", 3, 100, 0, true},
                          Step{"a", 2, 100, 0, false}, Step{"b", 1, 110, 0, true}, Step{"c", 1, 120, 0, true},
                          Step{"a", 4, 100, 0, false}, Step{"d", 1, 95, 0, false}, Step{"b", 2, 110, 0, true},
                          Step{"e", 1, 200, 115, true}, Step{"f", 1, 210, 115, true}, Step{"c", 2, 120, 115, false},
                          Step{"e", 1, 200, 115, false}, Step{"e", 2, 200, 115, true}})
        EXPECT_EQ(counts.accept(s.nonce, s.count, s.expiry, s.now), s.accepted)
            << s.nonce << " nc " << s.count << " at " << s.now;
}

} // namespace
} // namespace registrar
