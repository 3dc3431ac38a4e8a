// SPDX-License-Identifier: MIT
#include "sim/web_server.h"

#include "server/inbound_commands.h"
#include "sim/dashboard_feed.h"
#include "sim/far_field_voice.h"
#include "sim/web_assets.h"

#include <httplib.h>
#include <nlohmann/json.hpp>
#include <sndfile.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <sstream>
#include <thread>
#include <unistd.h>

namespace zor::sim
{

namespace
{

using nlohmann::json;

constexpr size_t kMaxCommandChars = 256;
constexpr size_t kMaxSentenceChars = 300;
// Each event stream holds one of the HTTP layer's eight worker threads.
constexpr int kMaxEventStreams = 3;
constexpr auto kStreamPoll = std::chrono::milliseconds(250);
constexpr int kPingEveryPolls = 20; // an idle stream writes a comment every 5 s

std::string dumped(const json& value)
{
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

void reply(httplib::Response& res, int status, const json& body)
{
    res.status = status;
    res.set_header("Cache-Control", "no-store");
    res.set_content(dumped(body), "application/json");
}

void refuse(httplib::Response& res, const std::string& why, int status = 400)
{
    reply(res, status, {{"error", why}});
}

bool printable(const std::string& text)
{
    for (const char c : text) {
        const auto u = static_cast<unsigned char>(c);
        if (u < 0x20 || u == 0x7f)
            return false;
    }
    return true;
}

// The page's JSON bodies carry one text field: present, a string, not blank,
// within `maxChars` and free of control characters. Refuses with a message
// naming the field (`noun`) and returns false otherwise.
struct TextField {
    const char* key;
    const char* objectExample; // shown when the body is not an object
    const char* stringExample; // shown when the field is missing or no string
    const char* noun;
    size_t maxChars;
};

bool readTextField(const httplib::Request& req, httplib::Response& res, const TextField& field,
                   std::string* text)
{
    const json body = json::parse(req.body, nullptr, false);
    if (body.is_discarded() || !body.is_object()) {
        refuse(res, std::string("the body must be a JSON object such as ") + field.objectExample);
        return false;
    }
    const auto value = body.find(field.key);
    if (value == body.end() || !value->is_string()) {
        refuse(res, std::string("\"") + field.key + "\" must be a string" + field.stringExample);
        return false;
    }
    *text = value->get<std::string>();
    const std::string noun = field.noun;
    if (text->find_first_not_of(' ') == std::string::npos) {
        refuse(res, "the " + noun + " is empty");
        return false;
    }
    if (text->size() > field.maxChars) {
        refuse(res,
               "the " + noun + " is longer than " + std::to_string(field.maxChars) + " characters");
        return false;
    }
    if (!printable(*text)) {
        refuse(res, "the " + noun + " holds control characters");
        return false;
    }
    return true;
}

// The command word of a line; "@ga tap": the application prefix is not the
// command.
std::string commandOf(const std::string& line)
{
    std::istringstream words(line);
    std::string command;
    words >> command;
    if (!command.empty() && command[0] == '@')
        words >> command;
    return command;
}

bool isLoopbackHost(const std::string& hostHeader)
{
    std::string host = hostHeader;
    if (!host.empty() && host[0] == '[') {
        host = host.substr(0, host.find(']') + 1);
    } else {
        const size_t colon = host.rfind(':');
        if (colon != std::string::npos)
            host.resize(colon);
    }
    return host == "127.0.0.1" || host == "localhost" || host == "[::1]";
}

bool isLoopbackAddress(const std::string& address)
{
    return address == "127.0.0.1" || address == "localhost" || address == "::1" ||
           address.rfind("127.", 0) == 0;
}

// A scratch file for an upload, removed when it goes out of scope.
class ScratchFile
{
public:
    explicit ScratchFile(const std::string& content)
    {
        char path[] = "/tmp/tvsim-upload-XXXXXX.wav";
        const int fd = mkstemps(path, 4);
        if (fd < 0)
            return;
        m_path = path;
        size_t done = 0;
        while (done < content.size()) {
            const ssize_t n = write(fd, content.data() + done, content.size() - done);
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                break;
            done += static_cast<size_t>(n);
        }
        m_complete = done == content.size();
        close(fd);
    }
    ~ScratchFile()
    {
        if (!m_path.empty())
            unlink(m_path.c_str());
    }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    bool ok() const { return !m_path.empty() && m_complete; }
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
    bool m_complete = false;
};

// libsndfile reading from memory, to look at an upload before anything else.
struct MemoryFile {
    const std::string& bytes;
    sf_count_t offset = 0;
};

sf_count_t memoryLength(void* user)
{
    return static_cast<sf_count_t>(static_cast<MemoryFile*>(user)->bytes.size());
}

sf_count_t memorySeek(sf_count_t offset, int whence, void* user)
{
    auto* file = static_cast<MemoryFile*>(user);
    const auto size = static_cast<sf_count_t>(file->bytes.size());
    sf_count_t target = offset;
    if (whence == SEEK_CUR)
        target += file->offset;
    else if (whence == SEEK_END)
        target += size;
    if (target < 0 || target > size)
        return -1;
    file->offset = target;
    return target;
}

sf_count_t memoryRead(void* out, sf_count_t count, void* user)
{
    auto* file = static_cast<MemoryFile*>(user);
    const auto size = static_cast<sf_count_t>(file->bytes.size());
    const sf_count_t n = std::max<sf_count_t>(0, std::min(count, size - file->offset));
    memcpy(out, file->bytes.data() + file->offset, static_cast<size_t>(n));
    file->offset += n;
    return n;
}

sf_count_t memoryWrite(const void*, sf_count_t, void*)
{
    return 0;
}

sf_count_t memoryTell(void* user)
{
    return static_cast<MemoryFile*>(user)->offset;
}

// Empty when `bytes` is a sound file that libsndfile reads; otherwise what
// is wrong with it.
std::string inspectAudio(const std::string& bytes, SF_INFO* info)
{
    SF_VIRTUAL_IO io = {memoryLength, memorySeek, memoryRead, memoryWrite, memoryTell};
    MemoryFile file{bytes};
    memset(info, 0, sizeof(*info));
    SNDFILE* sound = sf_open_virtual(&io, SFM_READ, info, &file);
    if (!sound)
        return "not an audio file (a WAV file is expected)";
    sf_close(sound);
    if (info->frames <= 0)
        return "the audio file holds no samples";
    return {};
}

// The uploaded file of a multipart request, or an error already answered.
const httplib::MultipartFormData* uploadedFile(const httplib::Request& req, httplib::Response& res,
                                               httplib::MultipartFormData* storage)
{
    if (!req.is_multipart_form_data() || !req.has_file("file")) {
        refuse(res, "expected a multipart upload with a field named \"file\"");
        return nullptr;
    }
    *storage = req.get_file_value("file");
    if (storage->content.empty()) {
        refuse(res, "the uploaded file is empty");
        return nullptr;
    }
    if (storage->content.size() > kWebUploadLimit) {
        refuse(res, "the file is too large (" + std::to_string(storage->content.size()) +
                        " bytes; at most " + std::to_string(kWebUploadLimit) + ")");
        return nullptr;
    }
    return storage;
}

} // namespace

class WebServer::Impl
{
public:
    Impl(const WebOptions& options, DashboardFeed& feed, Execute execute, FarFieldVoice* voice)
        : m_feed(feed), m_execute(std::move(execute)), m_voice(voice), m_bind(options.bind),
          m_loopbackOnly(isLoopbackAddress(options.bind))
    {
    }

    ~Impl()
    {
        m_stopping = true;
        m_server.stop();
        if (m_thread.joinable())
            m_thread.join();
    }

    bool listen(int port, std::string* error)
    {
        routes();
        // Address reuse only: with the HTTP layer's default SO_REUSEPORT a
        // second tvsim would bind the same port and the kernel would share
        // the requests between two televisions.
        m_server.set_socket_options([](socket_t sock) {
            const int yes = 1;
            setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
        });
        errno = 0;
        if (port == 0) {
            m_port = m_server.bind_to_any_port(m_bind);
        } else if (m_server.bind_to_port(m_bind, port)) {
            m_port = port;
        }
        if (m_port <= 0) {
            const int why = errno;
            *error = "cannot listen on " + m_bind + ":" + std::to_string(port) + ": " +
                     (why == EADDRINUSE ? "the port is already served (another tvsim --web?); "
                                          "choose another with --web-port"
                      : why             ? strerror(why)
                                        : "the address is not usable");
            return false;
        }
        m_thread = std::thread([this] { m_server.listen_after_bind(); });
        return true;
    }

    int port() const { return m_port; }
    const std::string& bind() const { return m_bind; }

private:
    void routes();
    httplib::Server::HandlerResponse guard(const httplib::Request& req, httplib::Response& res);
    void serveAsset(const httplib::Request& req, httplib::Response& res);
    void serveState(httplib::Response& res);
    void serveEvents(httplib::Response& res);
    void runCommand(const httplib::Request& req, httplib::Response& res);
    void runPcm(const httplib::Request& req, httplib::Response& res);
    void runSay(const httplib::Request& req, httplib::Response& res);
    void runSayWav(const httplib::Request& req, httplib::Response& res);
    // Runs the line and answers for it; logs it on the page.
    void execute(const std::string& line, const std::string& shown, httplib::Response& res);
    void answerUtterance(bool played, const FarFieldUtterance& utterance, const std::string& why,
                         httplib::Response& res);

    DashboardFeed& m_feed;
    Execute m_execute;
    FarFieldVoice* m_voice;
    std::string m_bind;
    bool m_loopbackOnly;
    httplib::Server m_server;
    std::thread m_thread;
    int m_port = -1;
    std::atomic<bool> m_stopping{false};
    std::atomic<int> m_streams{0};
    std::mutex m_speaking; // one utterance at a time
};

void WebServer::Impl::routes()
{
    m_server.set_payload_max_length(kWebRequestLimit);
    // Idle keep-alive connections hold worker threads; let them go soon.
    m_server.set_keep_alive_timeout(1);
    m_server.set_pre_routing_handler(
        [this](const httplib::Request& req, httplib::Response& res) { return guard(req, res); });
    // Whatever the HTTP layer refuses by itself (oversize bodies, unknown
    // paths) still answers with a JSON error the page can show.
    m_server.set_error_handler(
        httplib::Server::HandlerWithResponse([](const httplib::Request&, httplib::Response& res) {
            if (!res.body.empty())
                return httplib::Server::HandlerResponse::Unhandled;
            std::string why = "the request was refused (HTTP " + std::to_string(res.status) + ")";
            if (res.status == 404)
                why = "no such page";
            else if (res.status == 413)
                why = "the request is too large (at most " + std::to_string(kWebRequestLimit) +
                      " bytes)";
            res.set_content(dumped({{"error", why}}), "application/json");
            return httplib::Server::HandlerResponse::Handled;
        }));

    const auto asset = [this](const httplib::Request& req, httplib::Response& res) {
        serveAsset(req, res);
    };
    m_server.Get("/", asset);
    m_server.Get("/app.js", asset);
    m_server.Get("/style.css", asset);
    m_server.Get("/favicon.svg", asset);
    m_server.Get("/api/state",
                 [this](const httplib::Request&, httplib::Response& res) { serveState(res); });
    m_server.Get("/api/events",
                 [this](const httplib::Request&, httplib::Response& res) { serveEvents(res); });
    m_server.Post("/api/command", [this](const httplib::Request& req, httplib::Response& res) {
        runCommand(req, res);
    });
    m_server.Post("/api/pcm", [this](const httplib::Request& req, httplib::Response& res) {
        runPcm(req, res);
    });
    m_server.Post("/api/say", [this](const httplib::Request& req, httplib::Response& res) {
        runSay(req, res);
    });
    m_server.Post("/api/say-wav", [this](const httplib::Request& req, httplib::Response& res) {
        runSayWav(req, res);
    });
}

httplib::Server::HandlerResponse WebServer::Impl::guard(const httplib::Request& req,
                                                        httplib::Response& res)
{
    const std::string host = req.get_header_value("Host");
    // A name that resolves to 127.0.0.1 from a foreign page (DNS rebinding)
    // arrives with that name as Host.
    if (m_loopbackOnly && !isLoopbackHost(host)) {
        refuse(res, "this dashboard answers on 127.0.0.1 and localhost only", 403);
        return httplib::Server::HandlerResponse::Handled;
    }
    if (req.method == "POST" && req.has_header("Origin") &&
        req.get_header_value("Origin") != "http://" + host) {
        refuse(res, "requests from other origins are refused", 403);
        return httplib::Server::HandlerResponse::Handled;
    }
    return httplib::Server::HandlerResponse::Unhandled;
}

void WebServer::Impl::serveAsset(const httplib::Request& req, httplib::Response& res)
{
    const WebAsset* asset = findWebAsset(req.path);
    if (!asset) {
        refuse(res, "no such page", 404);
        return;
    }
    res.set_header("Cache-Control", "no-store");
    res.set_header("X-Content-Type-Options", "nosniff");
    res.set_header("Content-Security-Policy",
                   "default-src 'self'; img-src 'self' data:; frame-ancestors 'none'");
    res.set_content(reinterpret_cast<const char*>(asset->data), asset->size, asset->contentType);
}

void WebServer::Impl::serveState(httplib::Response& res)
{
    json body = m_feed.view();
    body["farField"] = m_voice != nullptr;
    body["uploadLimit"] = kWebUploadLimit;
    reply(res, 200, body);
}

void WebServer::Impl::serveEvents(httplib::Response& res)
{
    if (++m_streams > kMaxEventStreams) {
        --m_streams;
        refuse(res, "too many dashboard pages are open", 503);
        return;
    }
    res.set_header("Cache-Control", "no-store");
    auto cursor = std::make_shared<DashboardFeed::Cursor>(m_feed.subscribe());
    auto idlePolls = std::make_shared<int>(0);
    res.set_chunked_content_provider(
        "text/event-stream",
        [this, cursor, idlePolls](size_t, httplib::DataSink& sink) {
            std::vector<DashboardFeed::Event> events;
            json state;
            if (m_stopping || !m_feed.wait(*cursor, kStreamPoll, &events, &state))
                return false;
            std::string out;
            if (!state.is_null())
                out += "event: state\ndata: " + dumped(state) + "\n\n";
            for (const DashboardFeed::Event& event : events)
                out += "event: " + event.name + "\ndata: " + event.data + "\n\n";
            if (out.empty() && ++*idlePolls >= kPingEveryPolls)
                out = ": ping\n\n"; // finds pages that went away
            if (out.empty())
                return true;
            *idlePolls = 0;
            return sink.write(out.data(), out.size());
        },
        [this](bool) { --m_streams; });
}

void WebServer::Impl::execute(const std::string& line, const std::string& shown,
                              httplib::Response& res)
{
    const std::string answer = m_execute(line);
    m_feed.publishControl(shown, answer);
    if (answer.rfind("ok", 0) == 0) {
        reply(res, 200, {{"answer", answer.size() > 3 ? answer.substr(3) : std::string()}});
        return;
    }
    std::string why = answer.rfind("error ", 0) == 0 ? answer.substr(6) : answer;
    // A command that was fine but found no application is not the page's fault.
    static const std::string kUnanswered = "does not answer";
    const bool unanswered =
        why.size() >= kUnanswered.size() &&
        why.compare(why.size() - kUnanswered.size(), std::string::npos, kUnanswered) == 0;
    refuse(res, unanswered ? why + " (is an application running?)" : why, unanswered ? 503 : 400);
}

void WebServer::Impl::runCommand(const httplib::Request& req, httplib::Response& res)
{
    std::string text;
    if (!readTextField(
            req, res,
            {"line", "{\"line\": \"tap\"}", " such as \"tap\"", "command", kMaxCommandChars},
            &text))
        return;
    // Texts that don't fit their field are refused by the command itself.
    const std::string command = commandOf(text);
    if (command == "quit")
        return refuse(res, "quit is not available from the page");
    if (command == "pcm")
        return refuse(res, "PCM goes through the upload (POST /api/pcm)");
    execute(text, text, res);
}

void WebServer::Impl::runPcm(const httplib::Request& req, httplib::Response& res)
{
    httplib::MultipartFormData storage;
    const httplib::MultipartFormData* file = uploadedFile(req, res, &storage);
    if (!file)
        return;
    SF_INFO info;
    const std::string problem = inspectAudio(file->content, &info);
    if (!problem.empty())
        return refuse(res, problem);
    if (info.samplerate != 16000 || info.channels != 1)
        return refuse(res, "PCM must be 16 kHz mono; this file is " +
                               std::to_string(info.samplerate) + " Hz with " +
                               std::to_string(info.channels) + " channel(s)");
    ScratchFile scratch(file->content);
    if (!scratch.ok())
        return refuse(res, "cannot store the upload", 500);
    execute("pcm " + scratch.path(), "pcm " + file->filename, res);
}

void WebServer::Impl::answerUtterance(bool played, const FarFieldUtterance& utterance,
                                      const std::string& why, httplib::Response& res)
{
    if (!played) {
        m_feed.publishControl("say " + utterance.what, "error " + why);
        return refuse(res, why);
    }
    m_feed.publishControl("say " + utterance.what,
                          "ok " + std::to_string(utterance.samples.size()) + " samples");
    m_feed.publishUtterance(utterance);
    reply(res, 200, utteranceView(utterance));
}

void WebServer::Impl::runSay(const httplib::Request& req, httplib::Response& res)
{
    std::string sentence;
    if (!readTextField(req, res,
                       {"text", "{\"text\": \"Alexa, hello\"}", "", "sentence", kMaxSentenceChars},
                       &sentence))
        return;
    if (!m_voice)
        return refuse(res, "this tvsim has no simulated far-field device", 503);
    std::unique_lock<std::mutex> speaking(m_speaking, std::try_to_lock);
    if (!speaking.owns_lock())
        return refuse(res, "the device is still playing the last utterance", 409);
    FarFieldUtterance utterance;
    std::string why;
    const bool played = m_voice->sayText(sentence, &utterance, &why);
    utterance.what = sentence;
    answerUtterance(played, utterance, why, res);
}

void WebServer::Impl::runSayWav(const httplib::Request& req, httplib::Response& res)
{
    httplib::MultipartFormData storage;
    const httplib::MultipartFormData* file = uploadedFile(req, res, &storage);
    if (!file)
        return;
    SF_INFO info;
    const std::string problem = inspectAudio(file->content, &info);
    if (!problem.empty())
        return refuse(res, problem);
    if (!m_voice)
        return refuse(res, "this tvsim has no simulated far-field device", 503);
    std::unique_lock<std::mutex> speaking(m_speaking, std::try_to_lock);
    if (!speaking.owns_lock())
        return refuse(res, "the device is still playing the last utterance", 409);
    ScratchFile scratch(file->content);
    if (!scratch.ok())
        return refuse(res, "cannot store the upload", 500);
    FarFieldUtterance utterance;
    std::string why;
    const bool played = m_voice->sayWav(scratch.path(), &utterance, &why);
    utterance.what = file->filename.empty() ? std::string("upload.wav") : file->filename;
    answerUtterance(played, utterance, why, res);
}

WebServer::WebServer(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}

WebServer::~WebServer() = default;

std::unique_ptr<WebServer> WebServer::start(const WebOptions& options, DashboardFeed& feed,
                                            Execute execute, FarFieldVoice* voice,
                                            std::string* error)
{
    auto impl = std::make_unique<Impl>(options, feed, std::move(execute), voice);
    const int port = options.port >= 0 ? options.port : kDefaultWebPort;
    if (!impl->listen(port, error))
        return nullptr;
    return std::unique_ptr<WebServer>(new WebServer(std::move(impl)));
}

int WebServer::port() const
{
    return m_impl->port();
}

std::string WebServer::address() const
{
    const std::string& bind = m_impl->bind();
    const std::string host = bind.find(':') != std::string::npos ? "[" + bind + "]" : bind;
    return "http://" + host + ":" + std::to_string(m_impl->port()) + "/";
}

} // namespace zor::sim
