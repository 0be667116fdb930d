// The page's server.
#include "sim/web/server.hpp"
#include "sim/base/camera.hpp"
#include "sim/base/text.hpp"
#include "sim/models/table.hpp"
#include "sim/view/status_lines.hpp"
#include "sim/view/trace.hpp"
#include "sim/web/actions.hpp"
#include "sim/web/block.hpp"
#include "sim/web/guard.hpp"
#include "sim/web/hub.hpp"
#include "sim/web/page.hpp"
#include "tools/cli/command_line.hpp"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <httplib.h>
#include <memory>
#include <set>

namespace vcam::web {
namespace {

constexpr size_t kThreads = 32;        // an open page holds one
constexpr size_t kMostPages = 24;      // open at once
constexpr size_t kMostBody = 64 << 20; // of a request
constexpr size_t kMostCameras = 12;    // those that the page has opened among them
constexpr int kForbidden = 403, kTooMany = 409;

// Nothing from elsewhere, no script and no style but the page's two files.
constexpr const char* kHeaders[][2] = {
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; connect-src 'self'; "
     "media-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"Cache-Control", "no-store"},
};

using Request = httplib::Request;
using Response = httplib::Response;

void answer(Response& response, const Answer& said)
{
    response.status = said.status;
    response.set_content(said.text, "text/plain; charset=utf-8");
}

void answer_json(Response& response, const cli::Json& json)
{
    response.set_content(json.dump(-1, ' ', false, cli::Json::error_handler_t::replace), "application/json");
}

class PageServer {
public:
    explicit PageServer(const ServerOptions& options)
        : actions_(options.vcam, options.pace), hub_(options.self, options.folders)
    {
        server_.new_task_queue = [] { return new httplib::ThreadPool(kThreads); };
        server_.set_payload_max_length(kMostBody);
        server_.set_tcp_nodelay(true);
        // The library's own choice shares a port with any other server that asks for it.
        server_.set_socket_options([](socket_t fd) {
            const int yes = 1;
            setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        });
        server_.set_error_handler([](const Request& q, Response& r) { explain(q, r); });
        httplib::Headers headers;
        for (const auto& [name, value] : kHeaders) headers.emplace(name, value);
        server_.set_default_headers(headers);
        const int port = options.port ? options.port : server_.bind_to_any_port(options.host);
        if (options.port ? !server_.bind_to_port(options.host, port) : port <= 0)
            fail("cannot listen on %s:%d: the port is in use or the address is not this machine's; name "
                 "another "
                 "--host or --port",
                 options.host.c_str(), options.port);
        guard_ = std::make_unique<Guard>(options.host, port);
        const std::string host = is_wildcard(options.host) ? own_address() : options.host;
        const bool six = host.find(':') != std::string::npos;
        address_ = text(six ? "http://[%s]:%d/?token=%s" : "http://%s:%d/?token=%s", host.c_str(), port,
                        guard_->token().c_str());
        add_routes();
    }
    [[nodiscard]] const std::string& address() const { return address_; }
    void listen() { server_.listen_after_bind(); }
    void stop() { server_.stop(); }

private:
    void add_routes()
    {
        server_.set_pre_routing_handler([this](const Request& q, Response& r) { return admit(q, r); });
        server_.set_exception_handler(
            [](const Request&, Response& r, std::exception_ptr e) { refuse(r, e); });
        for (const auto& [path, type, content] : page_files())
            server_.Get(path, [type = type, content = content](const Request&, Response& r) {
                r.set_content(content.data(), content.size(), type);
            });
        server_.Get("/events", [this](const Request&, Response& r) { events(r); });
        server_.Get("/known", [this](const Request&, Response& r) { known(r); });
        on("/block", [](const Camera& c, const Request& q, Response& r) {
            answer_json(
                r, block_json(c, q.get_param_value("partition"), number(q, "block"), number(q, "piece")));
        });
        on("/trace", [](const Camera& c, const Request&, Response& r) { answer_json(r, trace_json(c)); });
        on("/diff", [this](const Camera& c, const Request&, Response& r) { answer(r, actions_.diff(c)); });
        on("/file", [this](const Camera& c, const Request& q, Response& r) { file(c, q, r); });
        on("/sound", [](const Camera& c, const Request& q, Response& r) { sound(c, q, r); });
        server_.Post("/action", [this](const Request& q, Response& r) {
            answer(r, act(folder(q), cli::Json::parse(q.body)));
        });
        server_.Post("/file", [this](const Request& q, Response& r) {
            answer(r, actions_.put(camera(q), q.get_param_value("path"), q.body));
        });
    }

    // The two files of script and style hold nothing of a camera; the rest needs the token.
    httplib::Server::HandlerResponse admit(const Request& q, Response& r) const
    {
        const char* reason = nullptr;
        const std::string host = q.get_header_value("Host");
        if (q.get_header_value_count("Host") != 1 || !guard_->host_allowed(host))
            reason = "this server has another name";
        else if (!guard_->origin_allowed(q.get_header_value("Origin"), host))
            reason = "a page of another origin";
        else if (q.path != "/page.js" && q.path != "/page.css" &&
                 !guard_->token_right(q.has_header("X-Token") ? q.get_header_value("X-Token")
                                                              : q.get_param_value("token")))
            reason = "the token of the printed address is missing";
        // The library's limit of a body is that of the bytes sent: few of them may unpack into very many.
        else if (q.has_header("Content-Encoding"))
            reason = "send it without compression";
        if (!reason) return httplib::Server::HandlerResponse::Unhandled;
        answer(r, {kForbidden, reason});
        return httplib::Server::HandlerResponse::Handled;
    }

    // Answers that the library gives without words.
    static void explain(const Request& q, Response& r)
    {
        if (!r.body.empty()) return;
        answer(r, {r.status, r.status == 413   ? text("the request is too large: a file is at most %zu MiB",
                                                      kMostBody >> 20)
                             : r.status == 404 ? "there is no " + one_line(q.path)
                                               : text("HTTP status %d", r.status)});
    }

    static void refuse(Response& r, const std::exception_ptr& thrown)
    {
        try {
            std::rethrow_exception(thrown);
        } catch (const std::exception& e) {
            answer(r, {400, e.what()});
        } catch (...) {
            answer(r, {500, "unknown"});
        }
    }

    static uint64_t number(const Request& q, const char* name)
    {
        return q.has_param(name) ? uint64_t(cli::whole_number(q.get_param_value(name), 0, INT32_MAX)) : 0;
    }

    std::string folder(const Request& q)
    {
        const uint64_t index = number(q, "camera");
        const auto folders = hub_.folders();
        if (index >= folders.size()) fail("there are %zu cameras", folders.size());
        return folders[index];
    }
    Camera camera(const Request& q) { return Camera(folder(q)); }

    // A camera that it makes is shown from then on.
    Answer act(const std::string& folder, const cli::Json& request)
    {
        if (request.is_object() && request.contains("action") && request["action"] == "open-point" &&
            hub_.folders().size() >= kMostCameras)
            return {kTooMany,
                    text("the page shows %zu cameras already; start it anew with fewer", kMostCameras)};
        Answer said = actions_.act(folder, request);
        if (!said.made.empty()) hub_.add(said.made);
        return said;
    }

    template<class Handler> void on(const char* path, Handler handler)
    {
        server_.Get(path, [this, handler](const Request& q, Response& r) { handler(camera(q), q, r); });
    }

    void events(Response& r)
    {
        const auto viewer = hub_.admit(kMostPages);
        if (!viewer) return answer(r, {503, "too many pages are open; close one"});
        r.set_chunked_content_provider("text/event-stream", [viewer](size_t, httplib::DataSink& sink) {
            const std::string events = viewer->wait();
            const std::string& bytes = events.empty() ? kSignOfLife : events;
            return sink.write(bytes.data(), bytes.size());
        });
    }

    static cli::Json target_json(const faults::Target& target)
    {
        cli::Json row = {{"name", target.name}, {"operations", cli::Json::array()}};
        for (const auto& operation : target.operations) row["operations"].push_back(operation.name);
        return row;
    }

    // What does not change: the cameras, what a fault may name, what stands at the lines.
    void known(Response& r)
    {
        cli::Json json = {
            {"cameras", hub_.folders()}, {"targets", cli::Json::array()}, {"lines", line_names_json()}};
        std::set<std::string> named;
        auto folders = hub_.folders();
        folders.emplace_back(); // the targets of every camera, where there is none
        for (const auto& folder : folders)
            for (const auto& target : models::fault_targets(folder))
                if (named.insert(target.name).second) json["targets"].push_back(target_json(target));
        answer_json(r, json);
    }

    void file(const Camera& c, const Request& q, Response& r) const
    {
        const Answer said = actions_.get(c, q.get_param_value("path"));
        if (said.status != 200) return answer(r, said);
        // Never shown as a page, whatever it is.
        r.set_header("Content-Disposition", "attachment; filename=\"file\"");
        r.set_content(said.text, "application/octet-stream");
    }

    static void sound(const Camera& c, const Request& q, Response& r)
    {
        const std::string name = q.get_param_value("name");
        const bool known =
            name == "mic.wav" || (starts_with(name, "speaker") && name.ends_with(".wav") &&
                                  name.find_first_not_of("speakr-.wv0123456789") == std::string::npos);
        const auto content = known ? try_read_file(c.path(name)) : std::nullopt;
        if (!content) return answer(r, {404, "there is no such sound"});
        r.set_content(*content, "audio/wav");
    }

    static inline const std::string kSignOfLife = ":\n\n";
    Actions actions_;
    Hub hub_;
    std::unique_ptr<Guard> guard_;
    std::string address_;
    httplib::Server server_;
};

PageServer* serving = nullptr; // for the signal's thread

// Signals come in one thread, which may do what a handler may not.
void stop_on_signals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set, number);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    std::thread([set] {
        int number = 0;
        sigwait(&set, &number);
        serving->stop();
    }).detach();
}

} // namespace

int serve(const ServerOptions& options)
{
    signal(SIGPIPE, SIG_IGN);
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set, number);
    pthread_sigmask(SIG_BLOCK, &set, nullptr); // before the first thread
    PageServer server(options);
    serving = &server;
    stop_on_signals();
    printf("%s\n", server.address().c_str());
    fflush(stdout);
    if (options.open) start({"/usr/bin/xdg-open", server.address()}, -1, -1, -1);
    server.listen();
    return 0;
}

} // namespace vcam::web
