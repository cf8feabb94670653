// Diagnostic channels over Boost.Log: the channel registry, the masks read
// from the environment, one text sink, and the fatal paths.
#include "internal/diag.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include <boost/core/null_deleter.hpp>
#include <boost/log/attributes/constant.hpp>
#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions/predicates/has_attr.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/sinks/text_ostream_backend.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/smart_ptr/make_shared_object.hpp>

namespace kt::internal::diag {

namespace logging = boost::log;

namespace {

// Attribute names of our records; the sink takes only records that carry
// them, so a host's own Boost.Log records never reach it.
constexpr const char* kChannelAttr = "KtChannel";
constexpr const char* kFlagAttr = "KtFlag";
constexpr const char* kWhereAttr = "KtWhere";

using TextSink = logging::sinks::synchronous_sink<logging::sinks::text_ostream_backend>;

// ---- configuration: masks by channel name ---------------------------------

struct Config {
  std::map<std::string, uint32_t> masks;  // by name; "*" for the rest
};

bool ParseMask(const std::string& text, uint32_t* mask) {
  if (text == "all") {
    *mask = kAllFlags;
    return true;
  }
  if (text.empty()) return false;
  char* end = nullptr;
  unsigned long long value = std::strtoull(text.c_str(), &end, 0);
  if (*end != '\0' || value > kAllFlags) return false;
  *mask = static_cast<uint32_t>(value);
  return true;
}

// "name:mask,name:mask"; names may hold "::", so the mask follows the last
// colon of each item.
bool ParseConfig(const std::string& spec, Config* config) {
  size_t at = 0;
  while (at <= spec.size()) {
    size_t comma = spec.find(',', at);
    std::string item = spec.substr(at, comma == std::string::npos ? std::string::npos : comma - at);
    at = comma == std::string::npos ? spec.size() + 1 : comma + 1;
    if (item.empty()) continue;
    size_t colon = item.rfind(':');
    uint32_t mask = 0;
    if (colon == std::string::npos || colon == 0 || !ParseMask(item.substr(colon + 1), &mask))
      return false;
    config->masks[item.substr(0, colon)] = mask;
  }
  return true;
}

uint32_t MaskFor(const Config& config, const std::string& name) {
  auto it = config.masks.find(name);
  if (it != config.masks.end()) return it->second;
  it = config.masks.find("*");
  return it == config.masks.end() ? 0 : it->second;
}

// ---- the registry ----------------------------------------------------------

struct Registry {
  std::mutex mutex;
  Config config;
  std::map<std::string, Channel*> channels;
  boost::shared_ptr<TextSink> sink;
  boost::shared_ptr<std::ostream> stream;  // where the sink writes
};

boost::shared_ptr<std::ostream> StandardError() {
  return boost::shared_ptr<std::ostream>(&std::clog, boost::null_deleter());
}

// An appending stream on `path`, or null when it cannot be opened.
boost::shared_ptr<std::ostream> OpenFile(const std::string& path) {
  auto file = boost::make_shared<std::ofstream>(path, std::ios::app);
  if (!file->is_open()) return nullptr;
  return file;
}

void SwitchStream(Registry* registry, boost::shared_ptr<std::ostream> stream) {
  auto backend = registry->sink->locked_backend();
  if (registry->stream) backend->remove_stream(registry->stream);
  backend->add_stream(stream);
  registry->stream = std::move(stream);
}

void FormatRecord(const logging::record_view& record, logging::formatting_ostream& out) {
  auto channel = logging::extract<std::string>(kChannelAttr, record);
  auto flag = logging::extract<uint32_t>(kFlagAttr, record);
  auto where = logging::extract<std::string>(kWhereAttr, record);
  out << (channel ? *channel : std::string()) << " [0x" << std::hex << (flag ? *flag : 0u)
      << std::dec << "] " << (where ? *where : std::string()) << ":"
      << record[logging::expressions::smessage];
}

boost::shared_ptr<TextSink> MakeSink() {
  auto sink = boost::make_shared<TextSink>();
  sink->locked_backend()->auto_flush(true);
  sink->set_filter(logging::expressions::has_attr<std::string>(kChannelAttr));
  sink->set_formatter(&FormatRecord);
  logging::core::get()->add_sink(sink);
  return sink;
}

// Built once, with the environment read then; never destroyed, since
// channels are used by exit-time code of other components.
Registry& TheRegistry() {
  static Registry* registry = [] {
    auto* r = new Registry;
    if (const char* spec = std::getenv("KT_DIAGNOSTICS")) ParseConfig(spec, &r->config);
    r->sink = MakeSink();
    boost::shared_ptr<std::ostream> file;
    if (const char* path = std::getenv("KT_DIAGNOSTICS_FILE")) file = OpenFile(path);
    SwitchStream(r, file ? file : StandardError());
    return r;
  }();
  return *registry;
}

std::string Location(const char* file, int line, const char* function) {
  return std::string(file ? file : "") + ":" + std::to_string(line) + " " +
         (function ? function : "");
}

}  // namespace

// ---- records ------------------------------------------------------------------

struct Record::State {
  logging::record record;
  logging::record_ostream stream;
  explicit State(logging::record&& r) : record(std::move(r)), stream(record) {}
};

void Record::Push() {
  std::unique_ptr<State> state(state_);
  state_ = nullptr;
  state->stream.flush();
  state->stream.detach_from_record();
  logging::core::get()->push_record(std::move(state->record));
}

std::ostream& Record::stream() { return state_->stream.stream(); }

// ---- channels -----------------------------------------------------------------

Channel::Channel(std::string name, uint32_t mask) : name_(std::move(name)), mask_(mask) {}

bool Channel::CoreEnabled() { return logging::core::get()->get_logging_enabled(); }

Record Channel::OpenEnabled(uint32_t flag, const char* file, int line,
                            const char* function) const {
  logging::attribute_set attributes;
  attributes.insert(kChannelAttr, logging::attributes::constant<std::string>(name_));
  attributes.insert(kFlagAttr, logging::attributes::constant<uint32_t>(flag));
  attributes.insert(kWhereAttr,
                    logging::attributes::constant<std::string>(Location(file, line, function)));
  logging::record record = logging::core::get()->open_record(attributes);
  if (!record) return Record();  // every sink declined it
  return Record(new Record::State(std::move(record)));
}

void Channel::Write(uint32_t flag, const char* file, int line, const char* function,
                    const std::string& text) const {
  if (Record record = Open(flag, file, line, function)) record.stream() << text;
}

uint32_t Channel::SetMask(uint32_t mask) { return mask_.exchange(mask, std::memory_order_relaxed); }

Channel& GetChannel(const std::string& name) {
  Registry& registry = TheRegistry();
  std::lock_guard<std::mutex> lock(registry.mutex);
  auto it = registry.channels.find(name);
  if (it != registry.channels.end()) return *it->second;
  auto* channel = new Channel(name, MaskFor(registry.config, name));
  registry.channels.emplace(name, channel);
  return *channel;
}

bool Configure(const std::string& spec) {
  Config config;
  if (!ParseConfig(spec, &config)) return false;
  Registry& registry = TheRegistry();
  std::lock_guard<std::mutex> lock(registry.mutex);
  registry.config = config;
  for (auto& [name, channel] : registry.channels) channel->SetMask(MaskFor(config, name));
  return true;
}

bool SetSinkFile(const std::string& path) {
  Registry& registry = TheRegistry();
  boost::shared_ptr<std::ostream> stream = path.empty() ? StandardError() : OpenFile(path);
  if (!stream) return false;
  std::lock_guard<std::mutex> lock(registry.mutex);
  SwitchStream(&registry, std::move(stream));
  return true;
}

// ---- fatal paths ----------------------------------------------------------------

namespace {

std::atomic<bool>& FatalSwitch() {
  static std::atomic<bool> enabled{[] {
    const char* value = std::getenv("KT_FATAL_DIAGNOSTICS");
    return !(value != nullptr && value[0] == '0' && value[1] == '\0');
  }()};
  return enabled;
}

}  // namespace

bool FatalDiagnosticsEnabled() { return FatalSwitch().load(std::memory_order_relaxed); }

bool SetFatalDiagnosticsEnabled(bool on) { return FatalSwitch().exchange(on); }

void Terminate(const char* message, const char* file, int line, const char* function) {
  std::string text = std::string("Fatal diagnostic: ") + message + " (" +
                     Location(file, line, function) + ")\n";
  std::fflush(nullptr);
  std::fputs(text.c_str(), stderr);
  std::fflush(stderr);
  std::abort();
}

void AssertionFailed(const char* expression, const char* file, int line, const char* function) {
  std::string message = std::string("Assertion failed: ") + expression;
  Terminate(message.c_str(), file, line, function);
}

}  // namespace kt::internal::diag
