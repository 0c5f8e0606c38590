#include "backends/gtk/PageScripts.hpp"

#include <cstdint>
#include <utility>

namespace wayloom::gtk {

struct PageScripts::State {
  unsigned timeout;  // milliseconds
  std::function<void()> stuck;
  std::uint64_t generation = 0;  // of the page: calls of earlier ones count no more
  std::size_t running = 0;
  std::unique_ptr<Timeout> watch;

  void watchAnew() {
    watch.reset();
    if (running == 0) return;
    watch = std::make_unique<Timeout>(timeout, [this] {
      const auto report = stuck;  // which may destroy this
      abandon();
      report();
    });
  }
  void abandon() {
    ++generation;
    running = 0;
    watch.reset();
  }
};

struct PageScripts::Call {
  std::weak_ptr<State> state;
  std::uint64_t generation;
  bool wantsResult = false;
  bool hasEnded = false;
  std::optional<std::string> result{};
};

namespace {

std::optional<std::string> textOf(JSCValue* value) {
  if (jsc_value_is_undefined(value) != FALSE || jsc_value_is_null(value) != FALSE) return "";
  g_autofree char* text = jsc_value_to_string(value);
  if (text == nullptr) return std::nullopt;
  return text;
}

}  // namespace

PageScripts::PageScripts(WebKitWebView* view, platform::Duration timeout, std::function<void()> stuck)
    : view_(view), state_(std::make_shared<State>()) {
  state_->timeout = static_cast<unsigned>(std::chrono::duration_cast<std::chrono::milliseconds>(timeout).count());
  state_->stuck = std::move(stuck);
}

PageScripts::~PageScripts() { abandon(); }

void PageScripts::abandon() { state_->abandon(); }

bool PageScripts::areRunning() const { return state_->running > 0; }

void PageScripts::run(const std::string& script) {
  start(script, std::make_shared<Call>(Call{state_, state_->generation}));
}

std::optional<std::string> PageScripts::evaluate(const std::string& script) {
  const auto call = std::make_shared<Call>(Call{state_, state_->generation, true});
  start(script, call);
  const auto isAwaited = [&] {
    const auto state = call->state.lock();
    return !call->hasEnded && state && state->generation == call->generation;
  };
  while (isAwaited()) g_main_context_iteration(nullptr, TRUE);
  return call->result;
}

void PageScripts::start(const std::string& script, std::shared_ptr<Call> call) {
  if (++state_->running == 1) state_->watchAnew();
  webkit_web_view_evaluate_javascript(view_, script.data(), static_cast<gssize>(script.size()), nullptr, nullptr,
                                      nullptr, ended, new std::shared_ptr<Call>(std::move(call)));
}

void PageScripts::ended(GObject* view, GAsyncResult* result, gpointer data) noexcept {
  const std::unique_ptr<std::shared_ptr<Call>> owned(static_cast<std::shared_ptr<Call>*>(data));
  auto& call = **owned;
  g_autoptr(JSCValue) value = webkit_web_view_evaluate_javascript_finish(WEBKIT_WEB_VIEW(view), result, nullptr);
  call.hasEnded = true;
  if (value != nullptr && call.wantsResult) call.result = textOf(value);
  const auto state = call.state.lock();
  if (!state || state->generation != call.generation) return;
  --state->running;
  state->watchAnew();
}

}  // namespace wayloom::gtk
