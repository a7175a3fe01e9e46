// SPDX-License-Identifier: Apache-2.0
// The daemon's loop in this process.
#ifndef VSWITCH_SERVER_FIXTURE_H
#define VSWITCH_SERVER_FIXTURE_H

#include <functional>
#include <memory>
#include <thread>

#include "network/server.h"
#include "vswitch_test_support.h"

namespace vswitch_test {

class ServerTest : public testing::Test {
  protected:
    ServerTest() : target_(vswitch::empty_configuration(), vswitch::Roles()) {
        options_.run_directory = folder_.path();
    }
    ~ServerTest() override { stop(); }

    void start(std::function<void()> reload = [] {}) {
        server_ = std::make_unique<vswitch::Server>(target_, options_);
        thread_ = std::thread([this, reload] { server_->run(reload); });
    }

    void stop() {
        if (!server_) {
            return;
        }
        server_->stop();
        thread_.join();
        server_.reset();
    }

    std::unique_ptr<Client> connect() { return std::make_unique<Client>(folder_ / MTS_SOCKET_NAME); }

    TemporaryFolder folder_;
    vswitch::ServedSwitch target_;
    vswitch::ServerOptions options_;
    std::unique_ptr<vswitch::Server> server_;
    std::thread thread_;
};

} // namespace vswitch_test

#endif
