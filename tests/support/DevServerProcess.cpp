#include "support/DevServerProcess.h"

#include <algorithm>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <thread>

namespace testsupport {

namespace {

const std::filesystem::path program = builtProgram("tools/korbanhold-devserver");

// A server lives as long as a test suite; sanitizer builds start slowly.
constexpr auto serverLifetime = std::chrono::minutes(20);
constexpr auto startLimit = std::chrono::seconds(60);

ProcessOptions withLifetime(ProcessOptions options)
{
    options.timeout = serverLifetime;
    return options;
}

std::vector<std::string> onAnyPort(std::vector<std::string> arguments)
{
    if (std::find(arguments.begin(), arguments.end(), "--port") == arguments.end())
        arguments.insert(arguments.end(), { "--port", "0" });
    return arguments;
}

}

DevServerProcess::DevServerProcess(std::vector<std::string> arguments, ProcessOptions options)
    : m_process(program, onAnyPort(std::move(arguments)), withLifetime(std::move(options)))
{
    const auto deadline = std::chrono::steady_clock::now() + startLimit;
    std::string output;
    while ((output = m_process.standardOutputSoFar()).find('\n') == std::string::npos) {
        if (m_process.hasEnded() || std::chrono::steady_clock::now() > deadline) {
            const auto result = stop(SIGKILL);
            throw std::runtime_error("korbanhold-devserver did not start: " + result.standardError);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    m_line = output.substr(0, output.find('\n'));
    m_port = std::atoi(m_line.c_str() + m_line.rfind(':') + 1);
}

DevServerProcess::~DevServerProcess()
{
    if (m_running)
        stop(SIGTERM);
}

ProcessResult DevServerProcess::stop(int signal)
{
    ::kill(m_process.pid(), signal);
    m_running = false;
    auto result = m_process.wait();
    // Sanitizer reports of the server land here.
    std::cerr << result.standardError;
    return result;
}

std::string DevServerProcess::url(std::string_view path) const
{
    return "http://127.0.0.1:" + std::to_string(m_port) + std::string(path);
}

std::string DevServerProcess::methodUrl(std::string_view methodPath) const
{
    return url("/KorbanholdRestService/" + std::string(methodPath));
}

std::string DevServerProcess::adminUrl(std::string_view route) const { return url("/devserver/" + std::string(route)); }

ProcessResult runServerProgram(const std::vector<std::string>& arguments)
{
    return runProcess(program, arguments);
}

}
