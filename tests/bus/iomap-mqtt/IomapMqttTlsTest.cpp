// SPDX-License-Identifier: MIT
#include <poll.h>

#include <array>
#include <filesystem>

#include "Build.h"
#include "MqttTlsFixture.h"
#include "ProcessFigures.h"

namespace {

using testing::HasSubstr;

/// A server that takes connections and does with them what the test wants.
class BareServer {
 public:
    explicit BareServer(int port) : listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const int on = 1;
        ::setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
        EXPECT_EQ(::bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)),
                  0);
        EXPECT_EQ(::listen(listener.get(), 8), 0);
    }

    /// Takes a connection and its first bytes.
    FileDescriptor accept() const {
        FileDescriptor connection(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        std::array<char, 4096> hello{};
        EXPECT_GT(::read(connection.get(), hello.data(), hello.size()), 0);
        return connection;
    }

 private:
    FileDescriptor listener;
};

class IomapMqttTlsTest : public MqttTlsFixture {};

TEST_F(IomapMqttTlsTest, ABrokerWithTheRightCertificateIsTrusted) {
    makeCertificate("IP:127.0.0.1");
    startTlsBroker();
    launchTlsGateway();
    gateway->waitForLine("connected to the broker");
}

TEST_F(IomapMqttTlsTest, ABrokerOfAnotherNameIsNotTrustedUntilItsCertificateIsRight) {
    makeCertificate("DNS:other.example.org");
    startTlsBroker();
    launchTlsGateway();
    EXPECT_THAT(gateway->waitForLine("cannot connect to the broker"),
                HasSubstr("host name verification failed"));
    makeCertificate("IP:127.0.0.1");
    restartTlsBroker();
    gateway->waitForLine("connected to the broker");
}

TEST_F(IomapMqttTlsTest, ACertificateThatHasExpiredIsNotTrusted) {
    makeCertificate("IP:127.0.0.1", "20200102000000Z");
    startTlsBroker();
    launchTlsGateway();
    EXPECT_THAT(gateway->waitForLine("cannot connect to the broker"),
                HasSubstr("the certificate of the broker is refused: certificate has expired"));
    makeCertificate("IP:127.0.0.1");
    restartTlsBroker();
    gateway->waitForLine("connected to the broker");
}

TEST_F(IomapMqttTlsTest, ACertificateThatIsNotValidYetIsNotTrusted) {
    makeCertificate("IP:127.0.0.1", "20991231000000Z", "20980101000000Z");
    startTlsBroker();
    launchTlsGateway();
    EXPECT_THAT(
        gateway->waitForLine("cannot connect to the broker"),
        HasSubstr("the certificate of the broker is refused: certificate is not yet valid"));
}

TEST_F(IomapMqttTlsTest, ACertificateThatNobodyVouchesForIsNotTrusted) {
    makeCertificate("IP:127.0.0.1");
    startTlsBroker();
    gateway = launchGateway("", {}, R"(, "tls": true)");
    EXPECT_THAT(gateway->waitForLine("cannot connect to the broker"),
                HasSubstr("the certificate of the broker is refused: self-signed certificate"));
}

TEST_F(IomapMqttTlsTest, ABrokerThatWantsTheCertificateOfItsClientGetsIt) {
    makeCertificate("IP:127.0.0.1");
    const std::string place = directory.path();
    startTlsBroker("cafile " + place + "/cert.pem\nrequire_certificate true\n");
    launchTlsGateway();
    gateway->waitForLine("cannot connect to the broker");
    std::filesystem::create_directory(place + "/credentials");
    std::filesystem::copy_file(place + "/key.pem", place + "/credentials/mqtt-key");
    launchTlsGateway({{"CREDENTIALS_DIRECTORY", place + "/credentials"}},
                     R"(, "certificate_file": ")" + place + "/cert.pem\"");
    gateway->waitForLine("connected to the broker");
}

TEST_F(IomapMqttTlsTest, ABrokerThatGoesInTheHandshakeIsTriedAgain) {
    makeCertificate("IP:127.0.0.1");
    {
        const BareServer server(port);
        launchTlsGateway();
        server.accept();
        gateway->waitForLine("cannot connect to the broker");
    }
    startTlsBroker();
    gateway->waitForLine("connected to the broker");
}

TEST_F(IomapMqttTlsTest, ABrokerThatSaysNothingDoesNotUseUpTheProcessor) {
    makeCertificate("IP:127.0.0.1");
    const BareServer server(port);
    launchTlsGateway();
    const FileDescriptor connection = server.accept();
    const double before = processorTime(gateway->pid());
    constexpr int WATCHED_MS = 3000;
    // It must not hang up before its own limit; while it waits, it must not work.
    pollfd entry{connection.get(), POLLRDHUP, 0};
    EXPECT_EQ(::poll(&entry, 1, WATCHED_MS), 0);
    const double share = (processorTime(gateway->pid()) - before) * 1000 / WATCHED_MS;
    EXPECT_LE(share, SANITIZED || EMULATED ? 0.3 : 0.05);
}

}  // namespace
