#include "platform/home_network.h"

#include <gtest/gtest.h>

#include "scratch.h"

namespace kova::platform {
namespace {

using test::Shell;

// A network of its own: what a search by multicast reaches is what the test says.
class HomeNetworkTest : public testing::Test {
 protected:
  HomeNetworkTest() {
    Shell(
        "ip link set lo multicast off && ip link add home type veth peer name wire && "
        "ip addr add 192.168.77.10/24 dev home && ip link set home multicast on up");
  }
  ~HomeNetworkTest() override { Shell("ip link del home"); }
};

TEST_F(HomeNetworkTest, ANeighbourIsNearby) {
  for (const char* url : {"http://192.168.77.1/", "http://192.168.77.1:5000/root.xml",
                          "http://192.168.77.254:65535/?x=http://127.0.0.1/"}) {
    EXPECT_TRUE(IsNearbyUrl(url)) << url;
  }
}

TEST_F(HomeNetworkTest, NobodyElseIs) {
  for (const char* url : {"http://127.0.0.1:631/", "http://127.8.8.8/", "http://0.0.0.0/",
                          "http://192.168.78.1/", "http://11.22.33.44/", "http://localhost/",
                          "http://router.example/", "http://[::1]/", "http://[fe80::1%25home]/",
                          "http://3232255233/", "http://192.168.77/", "http://0300.168.77.1/"}) {
    EXPECT_FALSE(IsNearbyUrl(url)) << url;
  }
}

TEST_F(HomeNetworkTest, WhatIsReadInTwoWaysIsRefused) {
  for (const char* url : {"",
                          "192.168.77.1/",
                          "//192.168.77.1/",
                          "HTTP://192.168.77.1/",
                          "https://192.168.77.1/",
                          "ftp://192.168.77.1/",
                          "http://192.168.77.1",
                          "http://192.168.77.1:5000",
                          "http://192.168.77.1:/",
                          "http://192.168.77.1:0/",
                          "http://192.168.77.1:65536/",
                          "http://192.168.77.1:-1/",
                          "http://192.168.77.1:80x/",
                          "http://192.168.77.1:80:81/",
                          "http:// 192.168.77.1/",
                          "http://192.168.77.1 /",
                          "http://me@192.168.77.1/",
                          "http://192.168.77.1@127.0.0.1/",
                          "http://192.168.77.1\\@127.0.0.1/",
                          "http:///192.168.77.1/",
                          "http://192.168.77.1?/",
                          "http://192.168.77.1#/"}) {
    EXPECT_FALSE(IsNearbyUrl(url)) << url;
  }
}

TEST_F(HomeNetworkTest, ANetworkThatNoSearchReachesIsNotNearby) {
  Shell("ip link set home multicast off");
  EXPECT_FALSE(IsNearbyUrl("http://192.168.77.1/"));
  Shell("ip link set home multicast on down");
  EXPECT_FALSE(IsNearbyUrl("http://192.168.77.1/"));
}

TEST_F(HomeNetworkTest, PublicAddresses) {
  for (const char* text : {"11.22.33.44", "1.1.1.1", "9.255.255.255", "100.128.0.0", "172.32.0.1",
                           "192.0.1.1", "198.20.0.1", "223.255.255.255"}) {
    EXPECT_TRUE(IsPublicAddress(text)) << text;
  }
}

TEST_F(HomeNetworkTest, AddressesThatAreNotPublic) {
  for (const char* text : {"",
                           "x",
                           "1.2.3",
                           "1.2.3.4.5",
                           "::1",
                           "0.0.0.0",
                           "0.1.2.3",
                           "10.0.0.1",
                           "100.64.0.1",
                           "100.127.255.255",
                           "127.0.0.1",
                           "169.254.1.1",
                           "172.16.0.1",
                           "172.31.255.255",
                           "192.0.0.1",
                           "192.0.2.1",
                           "192.31.196.1",
                           "192.52.193.1",
                           "192.88.99.1",
                           "192.168.0.1",
                           "192.175.48.1",
                           "198.18.0.1",
                           "198.19.255.255",
                           "198.51.100.1",
                           "203.0.113.1",
                           "224.0.0.1",
                           "240.0.0.1",
                           "255.255.255.255"}) {
    EXPECT_FALSE(IsPublicAddress(text)) << text;
  }
}

}  // namespace
}  // namespace kova::platform
