#include "module.h"

namespace dgn {

ModuleState& moduleState()
{
    static ModuleState state;
    return state;
}

}  // namespace dgn

ResourceScope::ResourceScope() : m_saved(koraCurrentResourceHandle())
{
    const dgn::ModuleState& state = dgn::moduleState();
    koraSetResourceHandle(state.resourceInstance ? state.resourceInstance : state.moduleInstance);
}

ResourceScope::~ResourceScope() { koraSetResourceHandle(m_saved); }

KoString loadLocalString(unsigned id, const wchar_t* fallback)
{
    KoString text;
    const KoInstanceHandle previous = koraSetResourceHandle(dgn::moduleState().resourceInstance);
    text.loadString(id);
    // A null source before the switch is left as the switch made it.
    if (previous) koraSetResourceHandle(previous);
    if (text.isEmpty() && fallback && *fallback) text = fallback;
    return text;
}
