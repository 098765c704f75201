// References, to be looked at: commits alone move them.
#include "common/utf.hpp"
#include "network/rest/operations.hpp"
#include "network/rest/repos/content.hpp"
#include "objects/store/reference.hpp"

namespace zev::rest {

namespace {

constexpr int32_t kSymbolic = 2;
constexpr const zwchar *kUnreadable = u"srv.eReadReference_s";

// Null when there is no memory, the URL has no room, or the reference can't be read.
Tree reference_record(const Call &call, const Reference *reference) {
    const zwchar *name = zReferenceName(reference);
    const bool symbolic = zReferenceType(reference) == kSymbolic;
    Tree record = name ? project_record(call, u"ref", {name}) : Tree();
    if (!record) return {};
    const Oid *id = symbolic ? nullptr : zReferenceTarget(reference);
    const std::u16string digits = id ? id_text(*id) : std::u16string();
    const zwchar *target = symbolic ? zReferenceSymbolic(reference) : digits.c_str();
    if (!zJsonPathSetString(record.get(), u"refname", name) ||
        !zJsonPathSetString(record.get(), u"reftype", symbolic ? u"symbolic" : u"oid") ||
        !zJsonPathSetString(record.get(), u"target", target))
        return {};
    return record;
}

struct Listing {
    const Call &call;
    Tree entries{zJsonNew(Z_JSON_ARRAY)};
    bool failed = false; // for want of memory; the walk ends there
    std::unordered_set<std::string> names{};

    static bool add(Reference *reference, void *self) try {
        auto &listing = *static_cast<Listing *>(self);
        listing.failed = !push(listing.entries.get(), reference_record(listing.call, reference));
        if (!listing.failed) listing.names.insert(git_reference_name(reference->handle.get()));
        return !listing.failed;
    } catch (...) {
        return static_cast<Listing *>(self)->failed = true, fail_thrown();
    }
};

} // namespace

HttpResponse *list_references(Call &call) {
    if (HttpResponse *refusal = open_project(call)) return refusal;
    Listing listing{call};
    if (!listing.entries) return refuse(call, 500);
    const bool walked = zReferenceForeach(call.repository.get(), Listing::add, &listing);
    if (listing.failed) return refuse(call, 500);
    if (!walked) return refuse(call, 500, u"srv.eAccessProject");
    if (const std::string name =
            find_damaged_reference(call.repository->handle.get(), listing.names);
        !name.empty())
        return log_raised(kError, {}, kFacilitySrv),
               refuse(call, 500, kUnreadable, to_wide(name).c_str());
    HttpResponse *response = answer_entries(std::move(listing.entries));
    return response ? response : refuse(call, 500);
}

HttpResponse *read_reference(Call &call) {
    const zwchar *name = capture(call, u":other");
    if (!name || !*name) return refuse(call, 404, u"srv.eFieldRequired_s", u":ref");
    if (HttpResponse *refusal = open_project(call)) return refusal;
    const Owned<Reference, zReferenceFree> reference(zReferenceDwim(call.repository.get(), name));
    if (!reference) return refuse_absent(call, {404, u"srv.eNoSuchReference_s", name, kUnreadable});
    HttpResponse *response = answer_data(200, reference_record(call, reference.get()));
    return response ? response : refuse(call, 500);
}

HttpResponse *refuse_reference(Call &call) { return refuse(call, 400, u"zev.eMethodNotSupported"); }

} // namespace zev::rest
