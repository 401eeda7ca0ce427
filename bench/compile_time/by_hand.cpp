// What typed.cpp does, as it was written before there were interfaces.
#include "core/ipc/object/callable_object_instance.h"
#include "core/ipc/object/callable_object_reference.h"
#include "foundation/value_map.h"

namespace compile_time {

struct Extent {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
};

class StoreReference final : public ipc::CallableObjectReference {
public:
    using CallableObjectReference::CallableObjectReference;

#ifndef SERVICE_ALONE
    fn::Promise<std::uint64_t> count()
    {
        return callMethod("count").then([](const fn::Value& result) { return result.to<std::uint64_t>(); });
    }
    fn::Promise<void> put(const fn::String& key, const fn::ByteArray& data)
    {
        return callMethod("put", fn::Value::map({ { "key", key }, { "data", data } })).then([](const fn::Value&) {});
    }
    fn::Promise<fn::ByteArray> get(const fn::String& key)
    {
        return callMethod("get", key).then([](const fn::Value& result) { return result.byteArray(); });
    }
    fn::Promise<bool> remove(const fn::String& key)
    {
        return callMethod("remove", key).then([](const fn::Value& result) { return result.toBool(); });
    }
    fn::Promise<std::vector<fn::String>> list(const fn::String& prefix)
    {
        return callMethod("list", prefix).then([](const fn::Value& result) {
            std::vector<fn::String> keys;
            for (const auto& key : result.elements()) keys.push_back(key.asString());
            return keys;
        });
    }
    fn::Promise<Extent> extent(const fn::String& key)
    {
        return callMethod("extent", key).then([](const fn::Value& result) {
            return Extent { result.at("width").to<std::uint32_t>(), result.at("height").to<std::uint32_t>() };
        });
    }
    fn::Promise<void> touch(const std::vector<std::uint32_t>& ids)
    {
        fn::Value argument(fn::Value::ARRAY);
        for (const auto id : ids) argument.append(id);
        return callMethod("touch", argument).then([](const fn::Value&) {});
    }
    fn::Promise<std::uint32_t> add(std::uint32_t a, std::uint32_t b)
    {
        return callMethod("add", fn::Value::map({ { "a", a }, { "b", b } })).then([](const fn::Value& result) {
            return result.to<std::uint32_t>();
        });
    }
    fn::Promise<double> scale(double value, double factor)
    {
        return callMethod("scale", fn::Value::map({ { "value", value }, { "factor", factor } }))
            .then([](const fn::Value& result) { return result.toDouble(); });
    }
    fn::Promise<fn::String> greet(const fn::String& name)
    {
        return callMethod("greet", name).then([](const fn::Value& result) { return result.asString(); });
    }
#endif
};

class StoreInstance final : public ipc::CallableObjectInstance {
public:
    using CallableObjectInstance::CallableObjectInstance;

protected:
    fn::AutoPtr<ipc::ObjectReference> createReference(ipc::ObjectReferenceInitializer& initializer) override
    {
        return fn::makeAuto<StoreReference>(initializer);
    }

    void onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument) override
    {
        if (name == "count") {
            sendResult(context, _count);
        } else if (name == "put") {
            _data = argument.at("data").byteArray();
            sendResult(context, {});
        } else if (name == "get") {
            sendResult(context, _data);
        } else if (name == "remove") {
            sendResult(context, argument.asString().empty());
        } else if (name == "list") {
            fn::Value keys(fn::Value::ARRAY);
            keys.append(argument);
            keys.append(argument);
            sendResult(context, keys);
        } else if (name == "extent") {
            const auto size = static_cast<std::uint32_t>(argument.asString().size());
            sendResult(context, fn::Value::map({ { "width", size }, { "height", size } }));
        } else if (name == "touch") {
            _count += argument.size();
            sendResult(context, {});
        } else if (name == "add") {
            sendResult(context, argument.at("a").to<std::uint32_t>() + argument.at("b").to<std::uint32_t>());
        } else if (name == "scale") {
            sendResult(context, argument.at("value").toDouble() * argument.at("factor").toDouble());
        } else if (name == "greet") {
            sendResult(context, "Hello, " + argument.asString());
        } else {
            sendUnknownMethod(context, name);
        }
    }

private:
    std::uint64_t _count = 0;
    fn::ByteArray _data;
};

fn::AutoPtr<ipc::ObjectInstance> serve(ipc::Worker& worker) { return fn::makeAuto<StoreInstance>(worker); }

#ifndef SERVICE_ALONE
void callAll(StoreReference& store, const fn::String& key, const fn::ByteArray& data)
{
    store.count().ignore();
    store.put(key, data).ignore();
    store.get(key).ignore();
    store.remove(key).ignore();
    store.list(key).ignore();
    store.extent(key).ignore();
    store.touch({ 1, 2 }).ignore();
    store.add(1, 2).ignore();
    store.scale(1, 2).ignore();
    store.greet(key).ignore();
}
#endif

} // namespace compile_time
