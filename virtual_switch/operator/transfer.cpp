// SPDX-License-Identifier: Apache-2.0
// Commands that take the whole configuration out of the switch and put it in.
#include "model/configuration.h"
#include "model/store.h"
#include "operator/transaction.h"

namespace vswitch {

namespace {

constexpr size_t max_source = 4096; // bytes of a path

// A text to be fetched in parts, all of one moment.
void export_configuration(Call &call) {
    std::string text = format_configuration(call.the_switch.model.data(), call.the_switch.roles.list());
    const size_t size = text.size();
    call.reply = {{"download", call.the_switch.parcels.keep(std::move(text))}, {"size", size}};
}

// The upload's text comes from "source", which errors name.
void import_configuration(Call &call) {
    const std::string source = call.arguments.text("source", max_source).value_or("the configuration");
    const Configuration configuration = read_configuration(take_upload(call), source);
    const SwitchModel &model = call.the_switch.model;
    if (model.distribution() == Distribution::in_session) {
        throw Refusal(STATUS_TDX_SESSION_OPEN,
                      fmt::format("{} is not imported while \"{}\" has a distribution session open; commit or abort "
                                  "it first.",
                                  source, JsonReader::printable(model.session()->user)));
    }
    const SwitchData data = imported(configuration, model.data(), call.the_switch.clock.now(), source);
    const Roles roles = configuration.roles.value_or(Roles());
    change_or_tell(call, {data, &roles.list()}, source);
    shorten(call);
}

Store &required_store(const Call &call) {
    if (!call.the_switch.store) {
        throw Refusal(STATUS_NO_INSTANCE, "The switch has no database.");
    }
    return *call.the_switch.store;
}

void begin_backup(Call &call) {
    call.reply["backup"] = required_store(call).begin_copy();
}

// "done" says whether the copy is complete; then it can be fetched as a download.
void continue_backup(Call &call) {
    const uint32_t number = call.arguments.required_number("backup", any_number);
    auto content = required_store(call).copy_more(number);
    call.reply["done"] = content.has_value();
    if (content) {
        call.reply["size"] = content->size();
        call.reply["download"] = call.the_switch.parcels.keep(std::move(*content));
    }
}

const Command commands[] = {
    {"export", MTS_KIND_GET, export_configuration, {}},
    {"import", MTS_KIND_SET, import_configuration, {"upload", "source", "dryRun"}},
    {"backup.begin", MTS_KIND_GET, begin_backup, {}},
    {"backup.continue", MTS_KIND_GET, continue_backup, {"backup"}},
};

} // namespace

std::span<const Command> transfer_commands() {
    return commands;
}

} // namespace vswitch
