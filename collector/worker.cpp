#include "collector/worker.h"

#include <algorithm>
#include <csignal>
#include <utility>

namespace {

// Blocks signals: they are for the main thread, whose loop handles them.
class no_signals {
public:
    no_signals() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~no_signals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    no_signals(no_signals &&) = delete;

private:
    sigset_t before_{};
};

} // namespace

worker::worker(std::string name, std::unique_ptr<output> out, std::size_t most_waiting)
    : name_(std::move(name)), most_waiting_(most_waiting), state_(std::make_shared<shared>()) {
    state_->out = std::move(out);
    const no_signals inherited;
    thread_ = std::thread([state = state_] { run(state); });
}

worker::~worker() {
    if (!thread_.joinable()) return;
    {
        const std::lock_guard hold(state_->lock);
        state_->ending = true;
    }
    state_->filled.notify_one();
    thread_.join();
}

void worker::push(entry one) {
    {
        const std::lock_guard hold(state_->lock);
        if (state_->waiting.size() >= most_waiting_) {
            state_->waiting.pop_front();
            ++state_->dropped;
        }
        state_->waiting.push_back(std::move(one));
        if (state_->waiting.size() > 1) return; // the thread was notified already
    }
    state_->filled.notify_one();
}

void worker::feed(entry one) {
    constexpr std::size_t enough = 512; // keeps the output busy without reading a whole file into memory
    {
        std::unique_lock hold(state_->lock);
        // A sender that keeps messages until they are stored limits their number itself.
        const bool kept = one->in && one->in->ticket != 0;
        const std::size_t most = kept ? most_waiting_ : std::min(most_waiting_, enough);
        state_->taken_from.wait(hold, [this, most] { return state_->waiting.size() < most; });
        state_->waiting.push_back(std::move(one));
        if (state_->waiting.size() > 1) return;
    }
    state_->filled.notify_one();
}

worker::ending worker::finish(std::chrono::milliseconds patience) {
    {
        std::unique_lock hold(state_->lock);
        state_->ending = true;
        state_->filled.notify_one();
        if (!state_->taken_from.wait_for(hold, patience, [this] { return state_->ended; })) {
            state_->dropped += state_->waiting.size() + state_->in_hand;
            state_->waiting.clear();
            thread_.detach();
            return ending::stuck;
        }
    }
    thread_.join();
    return state_->good ? ending::done : ending::failed;
}

output_figures worker::figures() const {
    const std::optional<backlog> kept = state_->out->kept(); // may block: without the queue's lock
    const std::lock_guard hold(state_->lock);
    return {name_, state_->taken, state_->dropped, state_->waiting.size(), kept};
}

void worker::run(const std::shared_ptr<shared> &state) {
    const int pulse = state->out->pulse();
    std::deque<entry> batch;
    for (;;) {
        {
            std::unique_lock hold(state->lock);
            const auto something = [&state] { return !state->waiting.empty() || state->ending; };
            if (pulse > 0)
                state->filled.wait_for(hold, std::chrono::milliseconds(pulse), something);
            else
                state->filled.wait(hold, something);
            if (state->waiting.empty() && state->ending) break;
            // Only some at a time: messages taken from the queue no longer count as waiting, and cannot be dropped.
            for (int room = 256; room > 0 && !state->waiting.empty(); --room) {
                batch.push_back(std::move(state->waiting.front()));
                state->waiting.pop_front();
            }
            state->taken += batch.size();
            state->in_hand = batch.size();
        }
        state->taken_from.notify_all();
        for (const entry &one : batch) {
            state->out->take(*one);
            --state->in_hand;
        }
        batch.clear();
        state->out->settle();
    }
    const bool good = state->out->finish();
    const std::lock_guard hold(state->lock);
    state->good = good;
    state->ended = true;
    state->taken_from.notify_all();
}
