// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <string>
#include <vector>

#include "MqttFixture.h"

/// A test with a broker that has a certificate.
class MqttTlsFixture : public MqttFixture {
 protected:
    /// Makes a certificate that vouches for itself, in cert.pem and key.pem.
    ///
    /// @param name whose it is, such as "IP:127.0.0.1"
    /// @param end when it ends, or ended
    /// @param start from when on it is valid
    void makeCertificate(const std::string& name, const std::string& end = "20991231000000Z",
                         const std::string& start = "20200101000000Z") {
        const std::string place = directory.path();
        directory.file("index.txt", "");
        directory.file("serial", "01\n");
        const std::string config = directory.file(
            "ca.conf", "[ca]\ndefault_ca=x\n[x]\ndatabase=" + place +
                           "/index.txt\nserial=" + place + "/serial\nnew_certs_dir=" + place +
                           "\ndefault_md=sha256\npolicy=p\nx509_extensions=e\n[p]\n"
                           "commonName=supplied\n[e]\nsubjectAltName=" +
                           name + "\nbasicConstraints=CA:true\n[req]\ndistinguished_name=d\n[d]\n");
        run({"openssl", "req", "-config", config, "-new", "-newkey", "rsa:2048", "-nodes",
             "-keyout", place + "/key.pem", "-out", place + "/request.pem", "-subj", "/CN=broker"});
        run({"openssl", "ca", "-batch", "-config", config, "-selfsign", "-keyfile",
             place + "/key.pem", "-in", place + "/request.pem", "-out", place + "/cert.pem",
             "-notext", "-startdate", start, "-enddate", end});
    }

    static void run(const std::vector<std::string>& command) {
        const Outcome outcome = outcomeOf(command);
        ASSERT_EQ(outcome.status, 0) << outcome.errors;
    }

    /// @param options lines for its configuration
    void startTlsBroker(const std::string& options = "") {
        const std::string place = directory.path();
        startBroker("allow_anonymous true\ncertfile " + place + "/cert.pem\nkeyfile " + place +
                    "/key.pem\n" + options);
    }

    /// Has the broker take the certificate that is there now.
    void restartTlsBroker() {
        broker.reset();
        startTlsBroker();
    }

    /// @param more keys of the broker
    void launchTlsGateway(const std::map<std::string, std::string>& environment = {},
                          const std::string& more = "") {
        gateway = launchGateway("", environment,
                                R"(, "tls": true, "ca_file": ")" +
                                    (directory.path() / "cert.pem").string() + "\"" + more);
    }
};
