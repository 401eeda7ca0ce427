// Code that does not fit an interface. The first error of each case matches the text beside its number; case 0 compiles.
#include "core/ipc/interface/service.h"

struct Adder : ipc::Interface<Adder> {
    ipc::Method<int(int, int)> add;
#if CASE == 1 // static assertion failed: IPC_MEMBERS does not name each member
    ipc::Method<void()> forgotten;
#endif
    IPC_MEMBERS(add)
};

class AdderService : public ipc::Service<AdderService, Adder> {
public:
    using Service::Service;
#if CASE == 2 // serviceHasNoPublicMemberFunctionFor.*AdderService.*addMember.*int.int, int.
    int add(int, const char*);
#elif CASE == 3 // serviceGivesAnotherResult.*AdderService.*addMember; Given = fn::String; Wanted = int
    fn::String add(int, int);
#else
    int add(int, int);
#endif
};
fn::AutoPtr<AdderService> serve(ipc::Worker& worker) { return fn::makeAuto<AdderService>(worker); }

fn::Promise<int> call(const ipc::Ref<Adder>& adder)
{
#if CASE == 4 // deleted function.* A = {int, const char .&.\[4\]}; int wrongArgument = 2; .*Args = {int, int}
    return adder->add(1, "two");
#elif CASE == 5 // deleted function.* A = {int}; int wrongArgument = 2; .*Args = {int, int}
    return adder->add.within(fn::Duration::seconds(1))(1);
#elif CASE == 6 // deleted function.* A = {double, int}; int wrongArgument = 1;
    return adder->add(1.5, 2);
#else
    return adder->add(1, 2);
#endif
}
