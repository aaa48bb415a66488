#include "dxfopen.h"

#include "dbimpl.h"

namespace Kora::Dxf {

Kora::ErrorStatus readAudited(TagReader& in, KoDbDatabase& target, const KoString& name, KoString* message,
                              KoDbDxfReadReport* report, KoDbDxfReadMode mode)
{
    if (target.openObjectCount() > 0) {
        if (message) *message = KoString::format(L"%s: the drawing has open objects and cannot be replaced.", name.c_str());
        return Kora::eInvalidOpenState;
    }
    KoDbDxfReadReport localReport;
    KoDbDxfReadReport& rep = report ? *report : localReport;
    // The drawing is read and audited on its own, so that strict mode can
    // turn it down without touching what `target` holds.
    KoDbDatabase fresh(false);
    const Kora::ErrorStatus es = readDxf(in, fresh, name, message, &rep);
    if (es != Kora::eOk) return es;
    rep.audit = Kora::Db::audit(fresh);
    if (mode == KoDbDxfReadMode::kStrict && (!rep.warnings.empty() || !rep.audit.empty())) {
        const std::string first = rep.warnings.empty() ? rep.audit.front().message : rep.warnings.front();
        const size_t count = rep.warnings.size() + rep.audit.size();
        if (message)
            *message = KoString::format(L"%s: the drawing needs repairs (%zu), so it was not opened: %hs%hs.", name.c_str(),
                                        count, first.c_str(), count > 1 ? "; ..." : "");
        return Kora::eBadDxfFile;
    }
    KoDbAccess::swap(target, fresh);
    return Kora::eOk;
}

}  // namespace Kora::Dxf
