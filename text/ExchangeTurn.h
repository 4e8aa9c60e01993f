#pragma once

#include <stop_token>

// One rewrite at a time. The clipboard and the synthetic keys are shared by the whole desktop:
// two rewrites running at once (a trigger while one runs) would clear, fill and paste the one
// clipboard into each other. A rewrite holds the turn from reading the selection to pasting
// the answer; the next one waits for it, or ends with support::CancellationError when it is
// cancelled meanwhile.
class ExchangeTurn {
public:
    explicit ExchangeTurn(const std::stop_token& stop);
    ~ExchangeTurn();
    ExchangeTurn(const ExchangeTurn&) = delete;
    ExchangeTurn& operator=(const ExchangeTurn&) = delete;
};
