// The way of a command: the module must be there, then the project where the route names one, then
// the body, its row in the route's table, the right to it, and its arguments.
#include "network/rest/rms/rms.hpp"

#include "common/json.hpp"
#include "network/http/server.hpp"
#include "network/rest/access.hpp"
#include "zev/error.h"
#include "zev/str.h"

#include <algorithm>
#include <limits>
#include <string>
#include <string_view>

namespace zev::rest {

namespace {

const Json *value_of(Json *arguments, const zwchar *name) {
    const Json *node = arguments ? zJsonPathGet(arguments, name) : nullptr;
    return node && !zJsonIsNull(node) ? node : nullptr;
}

Json *object_at(Json *root, const zwchar *path) {
    Json *node = zJsonPathGet(root, path);
    return node && zJsonIsObject(node) ? node : nullptr;
}

const Command *find(std::span<const Command> commands, const zwchar *target, const zwchar *name) {
    for (const Command &command : commands)
        if (zStrcasesameW(command.target, target) && zStrcasesameW(command.name, name))
            return &command;
    return nullptr;
}

// An id has to be no less than 0, anything else to be there.
bool is_given(Json *arguments, const zwchar *name) {
    if (zStrsameW(name, u"id")) return number_of(arguments, name) >= 0;
    return value_of(arguments, name) != nullptr;
}

bool are_given(Json *arguments, std::u16string_view needs) {
    while (!needs.empty()) {
        const size_t blank = std::min(needs.find(u' '), needs.size());
        if (!is_given(arguments, std::u16string(needs.substr(0, blank)).c_str())) return false;
        needs.remove_prefix(std::min(blank + 1, needs.size()));
    }
    return true;
}

// By the first word of its name.
bool changes_rights(const Command &command) {
    constexpr std::u16string_view changing[] = {u"create", u"modify", u"delete", u"reset",
                                                u"rename", u"set",    u"add",    u"rem",
                                                u"remove", u"clear"};
    const std::u16string_view name = command.name;
    return name == u"member-purge" ||
           std::ranges::find(changing, name.substr(0, name.find(u'-'))) != std::end(changing);
}

// An act of an administrator is written down with whom and what it named: never a password.
void note_command(const Call &call, const Command &command, Json *arguments,
                  HttpResponse *response) {
    if (!changes_rights(command)) return;
    std::u16string named;
    for (const zwchar *each : {u"login", u"newlogin", u"id", u"name", u"newname", u"parent",
                               u"user", u"path", u"role", u"setting"})
        if (const zwchar *text = text_of(arguments, each))
            named.append(named.empty() ? u"" : u" ").append(text);
    for (const zwchar *each : {u"power", u"lock"})
        if (flag_of(arguments, each)) named.append(u" ").append(each);
    audit(call.server, {.target = command.target,
                        .act = command.name,
                        .name = named,
                        .owner = zStrsafeW(capture(call, u":owner")),
                        .project = zStrsafeW(capture(call, u":name")),
                        .status = response ? zHttpResponseCode(response) : 500});
}

HttpResponse *run(Call &call, std::span<const Command> commands) {
    Stream *stream = zHttpRequestBody(call.request);
    JsonBounds bounds{call.server->limits.json, call.server->limits.nodes};
    bounds.plain = true; // or a rule would be set for another path
    const Tree body(stream ? json_read_bounded(stream, bounds) : nullptr);
    if (bounds.exceeded) return refuse(call, 413);
    Json *query = body && zJsonIsObject(body.get()) ? object_at(body.get(), u"query") : nullptr;
    if (!query) return refuse_request(call);
    const zwchar *target = text_of(query, u"target"), *name = text_of(query, u"name");
    if (!target || !name) return refuse_request(call);
    const Command *command = find(commands, target, name);
    if (!command) return nullptr;
    Json *arguments = object_at(query, u"args");
    if (HttpResponse *refusal = admit_command(call, *command, arguments)) return refusal;
    if (!are_given(arguments, command->needs)) return refuse_request(call);
    HttpResponse *response = command->procedure(call, arguments);
    note_command(call, *command, arguments, response);
    return response;
}

HttpResponse *need_module(const Call &call, Here at = {}) {
    if (zHttpServerAuth(call.server)) return nullptr;
    return refuse(call, 500, u"admin.ePermissionDenied", zErrorDetail(), at);
}

} // namespace

const zwchar *text_of(Json *arguments, const zwchar *name) {
    const Json *value = value_of(arguments, name);
    return value ? zJsonGetString(value) : nullptr;
}

int32_t number_of(Json *arguments, const zwchar *name) {
    using Limits = std::numeric_limits<int32_t>;
    const Json *value = value_of(arguments, name);
    const int64_t number = value ? zJsonGetInt(value) : 0;
    return static_cast<int32_t>(std::clamp<int64_t>(number, Limits::min(), Limits::max()));
}

int32_t bits_of(Json *arguments, const zwchar *name) {
    const Json *value = value_of(arguments, name);
    return value ? static_cast<int32_t>(zJsonGetInt(value)) : 0;
}

bool flag_of(Json *arguments, const zwchar *name) {
    const Json *value = value_of(arguments, name);
    return value && zJsonGetBoolean(value);
}

HttpResponse *answer_status(int32_t status, Tree result) {
    Tree data(
        zJsonNewObject(u"type", zJsonNewString(u"auth"), u"status", zJsonNewInt(status), nullptr));
    if (!data) return nullptr;
    if (result) {
        if (!zJsonObjectPut(data.get(), u"result", result.get())) return nullptr;
        static_cast<void>(result.release());
    }
    return answer_data(status == Z_AUTH_DONE ? 200 : 500, std::move(data));
}

HttpResponse *refuse_request(const Call &call, Here at) {
    return refuse(call, 400, u"srv.eBadRequest", nullptr, at);
}

HttpResponse *run_server_command(Call &call) {
    if (HttpResponse *refusal = need_module(call)) return refusal;
    return run(call, kServerCommands);
}

HttpResponse *run_project_command(Call &call) {
    if (HttpResponse *refusal = need_module(call)) return refusal;
    if (HttpResponse *refusal = open_project(call)) return refusal;
    return run(call, kProjectCommands);
}

} // namespace zev::rest
