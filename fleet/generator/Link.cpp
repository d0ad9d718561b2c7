// SPDX-License-Identifier: MIT
#include "Link.h"

#include <mosquitto.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace {

constexpr int KEEP_ALIVE = 60;
constexpr int ACKNOWLEDGED = 1;

/// As many packets as there are: no call reads more than one for each message under way.
constexpr int ALL_PACKETS = 1;

}  // namespace

void Link::Release::operator()(mosquitto* handle) const {
    mosquitto_destroy(handle);
}

Link::Link(const std::string& id, const std::string& source, int port, FleetListener& hears)
    : name(id), listener(hears), client(mosquitto_new(id.c_str(), true, this)) {
    mosquitto* const c = client.get();
    if (c == nullptr) {
        throw std::runtime_error("there is no memory for the connection of " + id);
    }
    mosquitto_connect_callback_set(c, onConnect);
    mosquitto_publish_callback_set(c, onPublish);
    mosquitto_message_callback_set(c, [](mosquitto*, void* link, const mosquitto_message* message) {
        static_cast<Link*>(link)->listener.heard({static_cast<const char*>(message->payload),
                                                  static_cast<std::size_t>(message->payloadlen)});
    });
    check(mosquitto_connect_bind(c, "127.0.0.1", port, KEEP_ALIVE, source.c_str()));
}

void Link::onConnect(mosquitto* /*client*/, void* link, int code) {
    Link& self = *static_cast<Link*>(link);
    if (code != 0) {
        self.refusal = mosquitto_connack_string(code);
        return;
    }
    self.listener.accepted(self);
}

void Link::onPublish(mosquitto* /*client*/, void* link, int message) {
    Link& self = *static_cast<Link*>(link);
    self.listener.acknowledged(self, message);
}

int Link::socket() const {
    return mosquitto_socket(client.get());
}

bool Link::wantsToWrite() const {
    return mosquitto_want_write(client.get());
}

void Link::read() {
    check(mosquitto_loop_read(client.get(), ALL_PACKETS));
}

void Link::write() {
    check(mosquitto_loop_write(client.get(), ALL_PACKETS));
}

void Link::keepAlive() {
    check(mosquitto_loop_misc(client.get()));
}

int Link::publish(const std::string& topic, const std::string& payload) {
    int message = 0;
    check(mosquitto_publish(client.get(), &message, topic.c_str(), static_cast<int>(payload.size()),
                            payload.data(), ACKNOWLEDGED, false));
    return message;
}

void Link::subscribe(const std::string& topic) {
    check(mosquitto_subscribe(client.get(), nullptr, topic.c_str(), ACKNOWLEDGED));
}

void Link::check(int code) const {
    if (!refusal.empty()) {
        throw std::runtime_error(name + " was refused: " + refusal);
    }
    if (code != MOSQ_ERR_SUCCESS) {
        throw std::runtime_error(
            "the connection of " + name + " failed: " +
            (code == MOSQ_ERR_ERRNO ? std::strerror(errno) : mosquitto_strerror(code)));
    }
}
