#include "witness.h"

namespace simulated {
namespace {

Witness* theWitness = nullptr;

} // namespace

Witness::Witness() noexcept { theWitness = this; }
Witness::~Witness() { theWitness = nullptr; }
Witness& Witness::current() noexcept { return *theWitness; }

} // namespace simulated
