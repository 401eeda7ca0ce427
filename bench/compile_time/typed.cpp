// Ten methods, a service that has them and somebody who calls each, by an interface. by_hand.cpp is the same without one.
#include "core/ipc/interface/service.h"

namespace compile_time {

struct Extent {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
};
FN_FIELDS(Extent, width, height)

struct Store : ipc::Interface<Store> {
    ipc::Method<std::uint64_t()> count;
    ipc::Method<void(fn::String key, fn::ByteArray data)> put;
    ipc::Method<fn::ByteArray(fn::String key)> get;
    ipc::Method<bool(fn::String key)> remove;
    ipc::Method<std::vector<fn::String>(fn::String prefix)> list;
    ipc::Method<Extent(fn::String key)> extent;
    ipc::Method<void(std::vector<std::uint32_t> ids)> touch;
    ipc::Method<std::uint32_t(std::uint32_t a, std::uint32_t b)> add;
    ipc::Method<double(double value, double factor)> scale;
    ipc::Method<fn::String(fn::String name)> greet;
    IPC_MEMBERS(count, put, get, remove, list, extent, touch, add, scale, greet)
};

class StoreService final : public ipc::Service<StoreService, Store> {
public:
    using Service::Service;

    std::uint64_t count() { return _count; }
    void put(const fn::String&, const fn::ByteArray& data) { _data = data; }
    fn::ByteArray get(const fn::String&) { return _data; }
    bool remove(const fn::String& key) { return key.empty(); }
    std::vector<fn::String> list(const fn::String& prefix) { return { prefix, prefix }; }
    Extent extent(const fn::String& key)
    {
        const auto size = static_cast<std::uint32_t>(key.size());
        return { size, size };
    }
    void touch(const std::vector<std::uint32_t>& ids) { _count += ids.size(); }
    std::uint32_t add(std::uint32_t a, std::uint32_t b) { return a + b; }
    double scale(double value, double factor) { return value * factor; }
    fn::String greet(const fn::String& name) { return "Hello, " + name; }

private:
    std::uint64_t _count = 0;
    fn::ByteArray _data;
};

fn::AutoPtr<ipc::ObjectInstance> serve(ipc::Worker& worker) { return fn::makeAuto<StoreService>(worker); }

#ifndef SERVICE_ALONE
void callAll(const ipc::Ref<Store>& store, const fn::String& key, const fn::ByteArray& data)
{
    store->count().ignore();
    store->put(key, data).ignore();
    store->get(key).ignore();
    store->remove(key).ignore();
    store->list(key).ignore();
    store->extent(key).ignore();
    store->touch(std::vector<std::uint32_t> { 1, 2 }).ignore();
    store->add(1, 2).ignore();
    store->scale(1, 2).ignore();
    store->greet(key).ignore();
}
#endif

} // namespace compile_time
