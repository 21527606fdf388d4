// Finds the route of a control request, checks what all routes have in common, and calls it: where the
// request comes from, the token, the members of the body or the query.
#include "stand/control.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <set>
#include <string_view>

#include "stand/control_routes.h"

namespace CryptStand {
namespace {

// A control request is a few lines. The log of what clients send is not limited by this.
constexpr std::size_t kMaxControlBody = 1U << 20U;

// The segments of the path. A script that joins the service's URL, which ends in a slash, and "/stand/..."
// makes an empty segment at the front, which is dropped. "/stand" is "/stand/".
std::vector<std::string> ControlPath(const HttpRequest& request) {
  auto path = request.PathSegments().value_or(std::vector<std::string>());
  if (path.size() > 1 && path.front().empty()) path.erase(path.begin());
  if (path == std::vector<std::string>{"stand"}) path.emplace_back();
  return path;
}

bool IsPlaceholder(const std::string& segment) {
  return std::all_of(segment.begin(), segment.end(),
                     [](unsigned char letter) { return std::isupper(letter); }) &&
         !segment.empty();
}

std::vector<std::string> Split(std::string_view path) {
  std::vector<std::string> segments;
  path.remove_prefix(1);
  while (true) {
    const std::size_t slash = path.find('/');
    segments.emplace_back(path.substr(0, slash));
    if (slash == std::string_view::npos) return segments;
    path.remove_prefix(slash + 1);
  }
}

// The values of the pattern's placeholders; none if the path does not match.
std::optional<std::vector<std::string>> Match(const char* pattern, const std::vector<std::string>& path) {
  const auto wanted = Split(pattern);
  if (wanted.size() != path.size()) return std::nullopt;
  std::vector<std::string> values;
  for (std::size_t i = 0; i < path.size(); ++i) {
    if (IsPlaceholder(wanted[i]) && !path[i].empty()) {
      values.push_back(path[i]);
    } else if (wanted[i] != path[i]) {
      return std::nullopt;
    }
  }
  return values;
}

struct Found {
  const ControlRoute* route = nullptr;
  std::vector<std::string> values{};
  std::string methods{};  // of all routes with the path
};

// Routes without placeholders come before those with one in the table, so the first match is the right one.
Found FindRoute(const std::string& method, const std::vector<std::string>& path) {
  Found found;
  for (const ControlRoute& route : GetControlRoutes()) {
    auto values = Match(route.path, path);
    if (!values.has_value()) continue;
    found.methods += (found.methods.empty() ? "" : ", ") + std::string(route.method);
    if (method != route.method || found.route != nullptr) continue;
    found.route = &route;
    found.values = *std::move(values);
  }
  return found;
}

HttpReply UnknownPath(const std::vector<std::string>& path) {
  std::string message = "There is no such resource; GET /stand/ lists all";
  constexpr std::pair<const char*, const char*> kMoved[] = {
      {"fault", "POST /stand/v1/faults"}, {"room", "POST /stand/v1/rooms"},
      {"lists", "PUT /stand/v1/lists"},   {"clock", "PUT /stand/v1/clocks"},
      {"audit", "PUT /stand/v1/audit"},   {"events", "GET /stand/v1/events"}};
  for (const auto& [old, now] : kMoved) {
    if (path.size() == 2 && path[1] == old) message = std::string("This resource is now ") + now;
  }
  return NotFound(std::move(message));
}

HttpReply OtherMethod(const std::string& methods) {
  HttpReply reply = ErrorReply(
      {.status = 405, .code = "method_not_allowed", .message = "This resource has the methods " + methods});
  reply.headers.emplace_back("Allow", methods);
  return reply;
}

bool IsReading(const std::string& method) {
  return method == "GET";
}

// The name that comes twice in a query; empty if none does, or if an escape is malformed.
std::string FindRepeatedName(const HttpRequest& request) {
  std::set<std::string> names;
  std::string_view query = std::string_view(request.target).substr(request.target.find('?') + 1);
  while (!query.empty()) {
    const std::string_view member = query.substr(0, query.find('&'));
    query.remove_prefix(std::min(member.size() + 1, query.size()));
    HttpRequest single;
    single.target = "?" + std::string(member);
    const auto read = single.QueryMembers();
    if (!read.has_value()) return {};
    for (const auto& [name, value] : *read) {
      if (!names.emplace(name.View()).second) return std::string(name.View());
    }
  }
  return {};
}

// Values of a query are strings.
ControlInput ReadQuery(const HttpRequest& request) {
  auto members = request.QueryMembers();
  if (members.has_value()) return {*std::move(members), /*isQuery=*/true};
  ControlInput input;
  const std::string name = FindRepeatedName(request);
  input.Refuse(name.c_str(), name.empty() ? "The query cannot be read: an escape is malformed"
                                          : "\"" + name + "\" comes twice in the query");
  return input;
}

ControlInput ReadBody(const HttpRequest& request) {
  if (request.body.empty()) return ControlInput();
  auto members = ReadObject(request.body);
  if (members.has_value()) return {*std::move(members), /*isQuery=*/false};
  ControlInput input;
  input.Refuse("", "The body cannot be read: it must be a JSON object");
  return input;
}

bool HasQuery(const HttpRequest& request) {
  const std::size_t mark = request.target.find('?');
  return mark != std::string::npos && mark + 1 < request.target.size();
}

// Members in the wrong place are refused: to ignore "server" would clear the faults of all servers.
ControlInput ReadInput(const HttpRequest& request, const std::string& method) {
  if (IsReading(method)) return ReadQuery(request);
  ControlInput input = method == "DELETE" ? ReadQuery(request) : ReadBody(request);
  if (method != "DELETE" && HasQuery(request)) {
    input.Refuse("", "This request has its members in the body, not in the query");
  }
  const auto body = ReadObject(request.body);
  if (method == "DELETE" && !request.body.empty() && !(body.has_value() && body->GetCount() == 0)) {
    input.Refuse("", "This request has its members in the query, not in the body");
  }
  return input;
}

void CheckMembers(const ControlRoute& route, ControlInput& input) {
  std::vector<std::string> known;
  for (const ControlMember& member : route.members) known.emplace_back(member.name);
  for (const auto& [name, value] : input.GetMembers()) {
    const std::string text(name.View());
    if (std::find(known.begin(), known.end(), text) != known.end()) continue;
    input.Refuse(text.c_str(), "\"" + text + "\" is not a member of this request", known);
  }
  for (const ControlMember& member : route.members) {
    if (!member.isRequired || input.Has(member.name)) continue;
    input.Refuse(member.name, "\"" + std::string(member.name) + "\" is missing");
  }
}

}  // namespace

bool Control::IsFor(const HttpRequest& request) {
  const auto path = ControlPath(request);
  return !path.empty() && path.front() == "stand";
}

std::optional<HttpReply> Control::RefuseForeign(const HttpRequest& request) const {
  const auto error = access_.RefuseForeign(request);
  return error.has_value() ? std::optional(ErrorReply(*error)) : std::nullopt;
}

// No cache and no other reading of the type: replies contain what somebody else typed.
HttpReply Control::Serve(const HttpRequest& request, const std::stop_token& stop) {
  auto refusal = RefuseForeign(request);
  HttpReply reply = refusal.has_value() ? *std::move(refusal) : Dispatch(request, stop);
  reply.headers.emplace_back("Cache-Control", "no-store");
  reply.headers.emplace_back("X-Content-Type-Options", "nosniff");
  return reply;
}

HttpReply Control::Dispatch(const HttpRequest& request, const std::stop_token& stop) {
  const std::string method = request.method == "HEAD" ? "GET" : request.method;
  const auto path = ControlPath(request);
  Found found = FindRoute(method, path);
  if (found.methods.empty()) return UnknownPath(path);
  if (found.route == nullptr) return OtherMethod(found.methods);
  const bool isAuthorized = access_.HasToken(request);
  if (!IsReading(method) && !isAuthorized) return TokenMissing();
  if (request.body.size() > kMaxControlBody) {
    return ErrorReply({.status = 413, .code = "too_large", .message = "The body is larger than 1 MiB"});
  }
  ControlInput input = ReadInput(request, method);
  CheckMembers(*found.route, input);
  ControlCall call{environment_, request, stop, isAuthorized, std::move(found.values), std::move(input)};
  if (call.input.GetError().has_value()) return ErrorReply(*call.input.GetError());
  HttpReply reply = found.route->serve(call);
  if (!IsReading(method) && reply.status < 300) environment_.GetRealm().log.NoteChange();
  return reply;
}

}  // namespace CryptStand
