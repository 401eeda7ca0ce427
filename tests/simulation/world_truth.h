#pragma once
#include "core/ipc/dispatcher/dispatcher.h"
#include "core/simulation/world.h"
#include "truth.h"
#include <array>

namespace simulated {

using core::simulation::Choice;
using core::simulation::Process;
using core::simulation::World;

/// The truth about a simulated world, told at once. What the code of a killed process does on its way out is not asked about.
class WorldTruth final : public Truth, public Witness {
public:
    WorldTruth(World& world, bool tells) : Truth(tells), _world(world) { hearLog(); }

    ipc::Dispatcher* hub = nullptr; ///< While the main process has one.
    void rest(); ///< From now on; after a while everybody is to show that it is alive.
    void expectLateNotices(fn::Duration by = shortSilence) { longestSilence = longestSilence + by; }
    void harmed(const fn::String& name, const char* harm, fn::Duration time);

    // Witness.
    std::uint32_t choose(std::uint32_t count) override { return _world.decisions().choose(Choice::Load, count); }
    bool isResting() const override { return _isResting; }
    std::uint32_t pause() override;
    bool mayEndIdle() const override { return modulesEndIdle; }
    std::optional<fn::Duration> timeUntilProof() const override { return *proofTime - _world.now(); }
    int process() const override;
    int next(Numbered what) override { return ++_numbers[static_cast<std::size_t>(what)]; }
    void tell(Event event) override;

private:
    fn::Duration now() const override { return _world.now(); }
    bool isRunning(int process) const override;
    std::string nameOf(int process) const override;
    int mainProcess() const override { return _world.processes().front()->id(); }
    bool isThere(const std::string& module) const override;
    void checkWorld() override;
    void checkCounts();
    void checkRegistry();

    World& _world;
    bool _isResting = false;
    std::array<int, numberedKinds> _numbers {};
};

} // namespace simulated
