// SPDX-License-Identifier: MIT
#include "ServiceFollower.h"

#include <exception>
#include <utility>

#include "WakeUp.h"
#include "client/Failure.h"

namespace {

constexpr std::chrono::seconds RETRY_PAUSE(1);

}  // namespace

ServiceFollower::ServiceFollower(Listener listenerOfEvents)
    : listener(std::move(listenerOfEvents)) {
    service.waitForFirstEvent();
    service.takeEvents();
}

void ServiceFollower::follow() {
    for (const ServiceWatch::Event event : service.takeEvents()) {
        heed(event);
    }
    if (retryAt && Clock::now() >= *retryAt) {
        tryToReturn();
    }
}

void ServiceFollower::heed(ServiceWatch::Event event) {
    if (event == ServiceWatch::Event::BUS_LOST) {
        throw busFailure();
    }
    if (event == ServiceWatch::Event::WENT) {
        away = true;
        retryAt.reset();
        lastReason.clear();
        listener.onLoss();
        listener.tell("the service has gone; waiting for it");
    } else if (away) {
        tryToReturn();
    }
}

void ServiceFollower::tryToReturn() {
    try {
        listener.onReturn();
    } catch (const std::exception& e) {
        if (exitStatusOf(e) != EXIT_NO_SERVICE) {
            throw;
        }
        // Once is enough: it may last.
        if (std::exchange(lastReason, reasonOf(e)) != reasonOf(e)) {
            listener.tell(lastReason);
        }
        retryAt = Clock::now() + RETRY_PAUSE;
        wakeOnceAfter(RETRY_PAUSE);
        return;
    }
    away = false;
    retryAt.reset();
    lastReason.clear();
    listener.tell("the service is back");
}
