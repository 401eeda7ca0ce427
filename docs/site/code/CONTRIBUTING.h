#pragma once
// What the code of CONTRIBUTING.md finds.
#include "base/lifetime.h"
#include "foundation/run_loop.h"
#include "foundation/signal.h"

struct PlayerMembers {
    void next();
    fn::Signal<> _onProgress;
    fn::RunLoop& _loop;
    bool _hasEnded;
    fn::Lifetime _lifetime;
};
struct Player : PlayerMembers {
    void onTick();
};
struct CarelessPlayer : PlayerMembers {
    void onTick();
};
