#include "answers_fuzz_harness.h"

#include <fcntl.h>
#include <unistd.h>

#include <deque>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz_services.h"
#include "host/native_host.h"
#include "support/test_server.h"
#include "util/defaults_store.h"
#include "util/logging.h"

namespace wren::fuzz {
namespace {

constexpr std::string_view kSeparator = "\n===\n";
// Browser calls answered per input: a popover refresh asks for four.
constexpr long long kResultsPerInput = 8;

struct Answer {
  int status = 200;
  std::string type = "application/json";
  std::string body;
};

std::vector<std::string_view> sections(std::string_view input) {
  std::vector<std::string_view> out;
  for (size_t at; (at = input.find(kSeparator)) != std::string_view::npos;) {
    out.push_back(input.substr(0, at));
    input.remove_prefix(at + kSeparator.size());
  }
  out.push_back(input);
  return out;
}

Answer answerOf(std::string_view section) {
  Answer a;
  size_t eol = section.find('\n');
  std::string_view head = section.substr(0, eol);
  a.body = eol == std::string_view::npos ? std::string() : std::string(section.substr(eol + 1));
  size_t blank = head.find(' ');
  int status = 0;
  for (char c : head.substr(0, blank)) {
    if (c < '0' || c > '9' || status > 999) break;
    status = status * 10 + (c - '0');
  }
  if (status >= 100 && status <= 599) a.status = status;
  if (blank != std::string_view::npos) a.type = std::string(head.substr(blank + 1));
  return a;
}

// What lives across inputs: the service (which is the cloud too), the loop
// and the clients.
struct World {
  std::mutex mutex;
  std::deque<Answer> answers;  // guarded by mutex
  test::TestServer service;
  RunLoop loop;
  std::unique_ptr<FuzzServices> domain;
  int devNull = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  std::filesystem::path dir = std::filesystem::temp_directory_path() / ("wren-answers-fuzz-" + std::to_string(::getpid()));

  World() {
    setLogSink([](std::string_view) {});
    service.setHandler([this](const httplib::Request&, httplib::Response& res) {
      Answer a;
      {
        std::lock_guard lock(mutex);
        if (!answers.empty()) {
          a = std::move(answers.front());
          answers.pop_front();
        } else {
          a.body = "{}";
        }
      }
      res.status = a.status;
      res.set_content(a.body, a.type);
    });
    domain = std::make_unique<FuzzServices>(loop, service.origin(), service.origin());
    std::filesystem::create_directories(dir);
  }
};

World& world() {
  static World* w = new World();  // kept for the process; the fuzzer never exits cleanly
  return *w;
}

void feedDefaultsFile(World& w, std::string_view bytes) {
  std::filesystem::path file = w.dir / "defaults.json";
  std::ofstream(file, std::ios::binary | std::ios::trunc).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  DefaultsStore store(file);
  (void)store.stringForKey("curEmail");
  (void)store.integerForKey("timeoutInterval");
  store.setString("curEmail", "fuzz@example.com");
}

const char* const kScript[] = {
    R"({"type":"hook","name":"validateToolbarItem","window":1})",
    R"({"type":"message","name":"rateItems","page":1,"userInfo":{"type":"AutomaticScan","urls":[{"url":"http://bit.ly/a","id":1},{"url":"https://x.example","id":2},{"url":"http://y.example","id":3}]}})",
    R"({"type":"message","name":"wtp_rating","page":2,"userInfo":{"urls":[{"url":"http://x.example/","id":0}]}})",
    R"({"type":"message","name":"vd_get_setting","page":3,"userInfo":{"e":"a@b.c","i":1}})",
    R"({"type":"message","name":"vd_send_command","page":4,"userInfo":{"type":"x","k":"v"}})",
    R"({"type":"message","name":"get_relevant_blog","page":5,"userInfo":{}})",
    R"({"type":"message","name":"wtpatl","page":6,"userInfo":{}})",
    R"({"type":"message","name":"vd_scan_email","page":7,"userInfo":{"jwt":"t","json":"{}"}})",
    R"({"type":"message","name":"vd_feedback","page":8,"userInfo":{"jwt":"t","json":"{}"}})",
    R"({"type":"message","name":"send_data","page":9,"userInfo":{"a":1}})",
    R"({"type":"hook","name":"popoverWillShow","window":1})",
    R"({"type":"popover","event":"viewDidAppear","appearance":"dark"})",
    R"({"type":"popover","event":"click","control":"btnVeldrin"})",
    R"({"type":"message","name":"vd_open_new_tab","page":10,"userInfo":{"url":"https://x.example/ a"}})",
};

}  // namespace

void runAnswersInput(const uint8_t* data, size_t size) {
  World& w = world();
  std::vector<std::string_view> parts = sections(std::string_view(reinterpret_cast<const char*>(data), size));
  feedDefaultsFile(w, parts[0]);
  std::vector<Answer> answers;
  for (size_t i = 1; i < parts.size(); ++i) answers.push_back(answerOf(parts[i]));
  {
    std::lock_guard lock(w.mutex);
    w.answers.assign(answers.begin(), answers.end());
  }
  w.domain->setting.setBToolbarEnabled(true);
  w.domain->setting.setBAutoScanEnabled(true);
  w.domain->setting.setBManualScanEnabled(true);
  w.domain->setting.veldrinConfigItem().setVeldrinAPI(w.service.origin());

  auto host = std::make_unique<NativeHost>(w.domain->services, w.devNull, nullptr);
  for (const char* frame : kScript) host->handlePayload(frame);
  // The browser's answers to the calls the script made, each body in turn as
  // a result value (one that is not JSON drops the frame, as it would).
  for (long long id = 1; id <= kResultsPerInput && !answers.empty(); ++id) {
    const Answer& a = answers[static_cast<size_t>(id - 1) % answers.size()];
    host->handlePayload(R"({"type":"result","id":)" + std::to_string(id) + R"(,"value":)" + a.body + "}");
  }
  w.loop.runUntil([&] { return w.loop.pendingTransfers() == 0; });
  host.reset();
}

}  // namespace wren::fuzz
