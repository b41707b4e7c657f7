#pragma once

#include <array>
#include <memory>
#include <string>
#include <utility>

namespace kolva {

enum class LogLevel : int { kDebug = 10, kInfo = 20, kWarning = 30, kError = 40 };

// Where log records go. The binding layer implements it over a Python logger.
class LogSink {
 public:
  LogSink() = default;
  LogSink(const LogSink&) = delete;
  LogSink& operator=(const LogSink&) = delete;
  virtual ~LogSink() = default;
  virtual bool enabled(LogLevel level) = 0;
  virtual void emit(LogLevel level, const std::string& message) = 0;
};

// Logging with the sink's levels cached: refresh() is called once per public
// operation, so a disabled level costs one flag test and no formatting.
class Log {
 public:
  explicit Log(std::shared_ptr<LogSink> sink = nullptr) : sink_(std::move(sink)) { refresh(); }

  void refresh() {
    for (std::size_t i = 0; i < kLevels.size(); ++i) {
      on_[i] = sink_ != nullptr && sink_->enabled(kLevels[i]);
    }
  }
  bool on(LogLevel level) const { return on_[slot(level)]; }

  // `make` builds the message only when the level is on.
  template <typename MakeMessage>
  void at(LogLevel level, MakeMessage&& make) const {
    if (on(level)) sink_->emit(level, std::forward<MakeMessage>(make)());
  }
  template <typename MakeMessage>
  void debug(MakeMessage&& make) const {
    at(LogLevel::kDebug, std::forward<MakeMessage>(make));
  }
  template <typename MakeMessage>
  void error(MakeMessage&& make) const {
    at(LogLevel::kError, std::forward<MakeMessage>(make));
  }
  template <typename MakeMessage>
  void warning(MakeMessage&& make) const {
    at(LogLevel::kWarning, std::forward<MakeMessage>(make));
  }

 private:
  static constexpr std::array<LogLevel, 4> kLevels = {LogLevel::kDebug, LogLevel::kInfo, LogLevel::kWarning,
                                                      LogLevel::kError};
  static std::size_t slot(LogLevel level) {
    return static_cast<std::size_t>(static_cast<int>(level) / 10 - 1);
  }

  std::shared_ptr<LogSink> sink_;
  std::array<bool, 4> on_{};
};

}  // namespace kolva
