// The value records that rows are handed out in.
#include "AddressMapRecord.h"
#include "ContactRecord.h"
#include "HostInfo.h"
#include "PublicAddressRecord.h"
#include "RemoteFilter.h"
#include "SubscriberRecord.h"

#include <gtest/gtest.h>

#include <string>

using namespace velm;

TEST(ContactRecord, DefaultsMarkUnknownIdsAndANonPermanentContact) {
    ContactRecord contact;
    EXPECT_EQ(-1, contact.contactId());
    EXPECT_EQ(-1, contact.csid());
    EXPECT_EQ(0, contact.expires());
    EXPECT_EQ(0, contact.cseq());
    EXPECT_EQ("f", contact.permanent());
    EXPECT_EQ("", contact.address());
}

TEST(ContactRecord, NullTextKeepsTheFieldAndStdStringAlwaysAssigns) {
    ContactRecord contact;
    contact.setUser("alice");
    contact.setUser(static_cast<const char*>(nullptr));
    EXPECT_EQ("alice", contact.user());
    contact.setUser(std::string());
    EXPECT_EQ("", contact.user());

    contact.setAddress("sip:a@10.0.0.1");
    contact.setAddress(static_cast<const char*>(nullptr));
    EXPECT_EQ("sip:a@10.0.0.1", contact.address());
}

TEST(ContactRecord, PermanentStoresEvenAZeroCharacter) {
    ContactRecord contact;
    contact.setPermanent('t');
    EXPECT_EQ("t", contact.permanent());
    contact.setPermanent('\0');
    ASSERT_EQ(1u, contact.permanent().size());
    EXPECT_EQ('\0', contact.permanent()[0]);
}

TEST(SubscriberRecord, ActiveIgnoresAZeroCharacter) {
    SubscriberRecord subscriber;
    subscriber.setActive('t');
    subscriber.setActive('\0');
    EXPECT_EQ("t", subscriber.active());
    subscriber.setActive('f');
    EXPECT_EQ("f", subscriber.active());
}

TEST(Records, DefaultsOfRoutingAndHostRecords) {
    HostInfo host;
    EXPECT_TRUE(host.outboundAllowInternal());
    EXPECT_FALSE(host.outboundAllowExternal());

    AddressMapRecord map;
    EXPECT_TRUE(map.replaceUri());
    EXPECT_EQ(0, map.priority());
    EXPECT_EQ(0, map.modTime());

    PublicAddressRecord address;
    EXPECT_EQ(-1, address.public_address_id());
    EXPECT_EQ(-1, address.csid());

    remoteFilter filter;
    EXPECT_EQ(-1, filter.fid());
    EXPECT_EQ(-1, filter.trid());
}
