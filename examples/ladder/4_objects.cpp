// Rung 4: objects given and lent. A reference to an object is an argument or a result like any other value.
//
// This file is compiled twice: as the module 4_objects, which gets a process of its own, and as the program that starts it.
#include "core/application/application.h"
#include "core/ipc/interface/service.h"
#include "core/ipc/service_module.h"
#include <fmt/format.h>

struct Clerk : ipc::Interface<Clerk> { // Lent by the program.
    ipc::Method<fn::String(fn::String what)> note;
    IPC_MEMBERS(note)
};
struct Account : ipc::Interface<Account> { // Given by the bank.
    ipc::Method<fn::String(int amount)> deposit;
    IPC_MEMBERS(deposit)
};
struct Bank : ipc::Interface<Bank> {
    ipc::Method<ipc::Ref<Account>(ipc::Ref<Clerk>)> open;
    IPC_MEMBERS(open)
};

// --- The module

class AccountService final : public ipc::Service<AccountService, Account> {
public:
    AccountService(ipc::Worker& worker, ipc::Ref<Clerk> clerk) : Service(worker), _clerk(std::move(clerk)) { }
    fn::Promise<fn::String> deposit(int amount) // While the program waits for this, its own object is called.
    {
        return _clerk->note(fmt::format("a balance of {}", _balance += amount));
    }

private:
    const ipc::Ref<Clerk> _clerk;
    int _balance = 0;
};
class BankService final : public ipc::Service<BankService, Bank> {
public:
    using Service::Service;
    fn::AutoPtr<AccountService> open(const ipc::Ref<Clerk>& clerk) // Giving the service away makes it shared.
    {
        return fn::makeAuto<AccountService>(worker(), clerk);
    }
};

IPC_MODULE_ENTRY_POINT(ipc::ServiceModule<BankService>, "Bank")

// --- The program

struct ClerkService final : ipc::Service<ClerkService, Clerk> {
    using Service::Service;
    fn::String note(const fn::String& what) { return "noted: " + what; }
};
fn::Promise<void> run(ipc::Application& app)
{
    const auto bank = co_await app.find<Bank>();
    const auto account =
        co_await bank->open(fn::makeAuto<ClerkService>(app.worker())); // Lent for as long as the bank holds it.
    for (const int amount : { 5, 7 }) fmt::print("{}\n", co_await account->deposit(amount));
} // The last reference to the account goes, and the account with it.
int main() { return ipc::Application({ .modules = { "4_objects" } }).run(run); }
