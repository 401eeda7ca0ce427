#include "growth/roles.h"

namespace bench::growth {
namespace {

template <Part part> class PartSubject final : public Subject {
public:
    using Subject::Subject;

protected:
    fn::AutoPtr<ipc::ObjectReference> createReference(ipc::ObjectReferenceInitializer& initializer) override
    {
        return fn::makeAuto<SubjectReference<part>>(initializer);
    }
};

template <Part part> fn::AutoPtr<Subject> makeSubject(Session& session)
{
    return fn::makeAuto<PartSubject<part>>(session);
}

fn::AutoPtr<Subject> makeSubject(Session& session, const std::string& part)
{
    if (part == "owner") return makeSubject<Part::Owner>(session);
    if (part == "holder") return makeSubject<Part::Holder>(session);
    if (part == "other") return makeSubject<Part::Other>(session);
    if (part == "prober") return makeSubject<Part::Prober>(session);
    fail("no such part: " + part);
}

} // namespace

std::vector<std::size_t> sizes(const Options& options)
{
    std::vector<std::size_t> found;
    const auto& text = options.text("sizes");
    for (std::size_t start = 0; start < text.size();) {
        std::size_t length = 0;
        found.push_back(std::stoul(text.substr(start), &length));
        start += length + 1;
    }
    return found;
}

void playSubject(const Options& options, fn::uv::Loop& loop)
{
    Session session(options, loop);
    session.worker().registerObjectReferenceClass<ItemReference>();
    const auto& part = options.text("part");
    const auto subject = makeSubject(session, part);
    if (part == "prober") subject->setProbed(session.find<SubjectReference<Part::Owner>>());
    session.publish(subject);
    announceReady();
    session.serve();
}

void playCrowd(const Options& options, fn::uv::Loop& loop)
{
    std::vector<std::unique_ptr<Session>> crowd;
    // One after another: the queue of connections that a socket has not accepted yet is short.
    for (auto left = options.count("workers"); left > 0; --left) {
        crowd.push_back(std::make_unique<Session>(options, loop));
    }
    announceReady();
    crowd.front()->serve();
}

} // namespace bench::growth
