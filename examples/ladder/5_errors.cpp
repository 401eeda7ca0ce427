// Rung 5: errors of one's own. What a service throws, its caller catches: the same class, message and details.
//
// This file is compiled twice: as the module 5_errors, which gets a process of its own, and as the program that starts it.
#include "base/exception_factory.h"
#include "core/application/application.h"
#include "core/ipc/interface/service.h"
#include "core/ipc/service_module.h"
#include <fmt/format.h>

// Both sides know the class. In a larger program the first line stands in a header and the second one in a source.
FN_DECLARE_EXCEPTION(OverdrawnException, fn::RuntimeException);
FN_IMPLEMENT_EXCEPTION(OverdrawnException, fn::RuntimeException);

struct Account : ipc::Interface<Account> {
    ipc::Method<int(int amount)>
        withdraw; // Gives what is left. `OverdrawnException` tells in its details how much is missing.
    IPC_MEMBERS(withdraw)
};

// --- The module

class AccountService final : public ipc::Service<AccountService, Account> {
public:
    using Service::Service;
    int withdraw(int amount)
    {
        if (amount < 0) throw fn::RangeException("An amount is positive");
        if (amount > _balance)
            throw fn::with(OverdrawnException("The account is empty"), fn::ErrorCodeInfo { amount - _balance });
        return _balance -= amount;
    }

private:
    int _balance = 10;
};

IPC_MODULE_ENTRY_POINT(ipc::ServiceModule<AccountService>, "Account")

// --- The program

fn::Promise<void> run(ipc::Application& app)
{
    const auto account = co_await app.find<Account>();
    for (const int amount : { 8, 8, -1 }) {
        try {
            fmt::print("{} are left\n", co_await account->withdraw(amount));
        } catch (const OverdrawnException& overdrawn) {
            fmt::print("{}: {} are missing\n", overdrawn.message(), *overdrawn.find<fn::ErrorCodeInfo>());
        } catch (const fn::Exception& other) {
            fmt::print("{}: {}\n", other.className(), other.message());
        }
    }
}

int main() { return ipc::Application({ .modules = { "5_errors" } }).run(run); }
