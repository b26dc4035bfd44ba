// korbanhold-devserver: serves the Korbanhold REST service on 127.0.0.1 until SIGINT or SIGTERM.

#include "devserver/CommandLine.h"
#include "devserver/DevServer.h"
#include "devserver/Schema.h"

#include <csignal>
#include <iostream>

int main(int argc, char** argv)
{
    // The signals that end the server are taken by sigwait below, so every thread must leave them blocked.
    sigset_t endSignals;
    sigemptyset(&endSignals);
    sigaddset(&endSignals, SIGINT);
    sigaddset(&endSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &endSignals, nullptr);

    int exitCode = 0;
    const auto commandLine = devserver::parseCommandLine(argc, argv, exitCode);
    if (!commandLine)
        return exitCode;
    if (commandLine->printSchema) {
        std::cout << devserver::schemaSql();
        return 0;
    }

    try {
        devserver::DevServer server(commandLine->server);
        server.start();
        std::cout << "listening on " << server.baseUrl() << std::endl;
        int received = 0;
        sigwait(&endSignals, &received);
        server.stop();
    } catch (const std::exception& error) {
        std::cerr << "korbanhold-devserver: " << error.what() << std::endl;
        return 1;
    }
    return 0;
}
