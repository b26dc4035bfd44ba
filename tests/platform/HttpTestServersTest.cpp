#include "HttpTestServers.h"

#include <gtest/gtest.h>

using httptest::LoopbackHttpServer;

TEST(LoopbackHttpServer, StartReturnsOnceTheServerAcceptsConnections)
{
    LoopbackHttpServer server;
    server.start();
    EXPECT_TRUE(server.server.is_running());
}

TEST(LoopbackHttpServer, AServerStoppedRightAfterItStartsStops)
{
    // A server stopped before it entered its accept loop would accept for ever and this test would never end: run
    // the shortest life a server can have many times over.
    for (int life = 0; life < 50; ++life) {
        LoopbackHttpServer server;
        server.start();
        EXPECT_TRUE(server.server.is_running());
    }
}
