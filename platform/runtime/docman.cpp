#include "kora/docman.h"

#include "commandstate.h"

#include <algorithm>
#include <filesystem>

#include "kora/dxf/dxf.h"
#include "kora/editor.h"
#include "kora/editorbackend.h"

namespace fs = std::filesystem;

namespace {

KoString titleOf(const KoString& fileName)
{
    return KoString::fromUtf8(fs::path(fileName.toUtf8()).filename().string());
}

KoString currentDrawingFolder()
{
    const KoApDocument* doc = koDocManagerPtr()->curDocument();
    if (!doc || doc->fileName().isEmpty()) return KoString();
    return KoString::fromUtf8(fs::path(doc->fileName().toUtf8()).parent_path().string());
}

bool isDwgName(const KoString& fileName)
{
    const KoString ext = KoString::fromUtf8(fs::path(fileName.toUtf8()).extension().string()).upper();
    return ext == L".DWG" || ext == L".DWT";
}

}  // namespace

KoApDocument::KoApDocument(std::unique_ptr<KoDbDatabase> database, KoString fileName, KoString title)
    : m_database(std::move(database)), m_fileName(std::move(fileName)), m_title(std::move(title))
{
}

KoApDocument::~KoApDocument() = default;

KoAp::DocLockMode KoApDocument::lockMode() const { return m_locks.empty() ? KoAp::kNotLocked : m_locks.back(); }

KoApDocManager::KoApDocManager() { koraSetDrawingFolderSource(currentDrawingFolder); }

KoApDocManager::~KoApDocManager() = default;

KoApDocument* KoApDocManager::document(int index) const
{
    return index >= 0 && index < documentCount() ? m_documents[static_cast<size_t>(index)].get() : nullptr;
}

Kora::ErrorStatus KoApDocManager::setCurDocument(KoApDocument* document)
{
    const bool known = std::any_of(m_documents.begin(), m_documents.end(), [&](const auto& d) { return d.get() == document; });
    if (!known) return Kora::eInvalidInput;
    m_current = document;
    return Kora::eOk;
}

Kora::ErrorStatus KoApDocManager::appContextNewDocument(const wchar_t*)
{
    auto database = std::make_unique<KoDbDatabase>(true);
    const KoString title = KoString::format(L"Drawing%d", ++m_untitledCount);
    m_documents.push_back(std::make_unique<KoApDocument>(std::move(database), KoString(), title));
    m_current = m_documents.back().get();
    return Kora::eOk;
}

Kora::ErrorStatus KoApDocManager::appContextOpenDocument(const wchar_t* fileName, KoString* message,
                                                         KoDbDxfReadReport* report)
{
    const KoString name(fileName ? fileName : L"");
    if (isDwgName(name)) {
        if (message) *message = KoString::format(L"%s: DWG and DWT drawings cannot be read by this host; open a DXF file.", name.c_str());
        return Kora::eUnsupportedFileFormat;
    }
    auto database = std::make_unique<KoDbDatabase>(false);
    const Kora::ErrorStatus es = kodbReadDxfFile(*database, name, message, report);
    if (es != Kora::eOk) return es;
    std::error_code ec;
    const KoString full = KoString::fromUtf8(fs::absolute(name.toUtf8(), ec).lexically_normal().string());
    m_documents.push_back(std::make_unique<KoApDocument>(std::move(database), full, titleOf(full)));
    m_current = m_documents.back().get();
    return Kora::eOk;
}

Kora::ErrorStatus KoApDocManager::saveDocument(KoApDocument* document, const wchar_t* fileName, KoString* message)
{
    if (!document) return Kora::eNullPtr;
    const KoString target = fileName && *fileName ? KoString(fileName) : document->fileName();
    if (target.isEmpty()) return Kora::eInvalidInput;
    if (isDwgName(target)) {
        if (message) *message = KoString::format(L"%s: this host saves drawings as DXF only.", target.c_str());
        return Kora::eUnsupportedFileFormat;
    }
    const Kora::ErrorStatus es = kodbWriteDxfFile(*document->database(), target, message);
    if (es != Kora::eOk) return es;
    std::error_code ec;
    document->setFileName(KoString::fromUtf8(fs::absolute(target.toUtf8(), ec).lexically_normal().string()));
    document->setDocTitle(titleOf(document->fileName()));
    return Kora::eOk;
}

Kora::ErrorStatus KoApDocManager::closeDocument(KoApDocument* document)
{
    const auto it = std::find_if(m_documents.begin(), m_documents.end(), [&](const auto& d) { return d.get() == document; });
    if (it == m_documents.end()) return Kora::eInvalidInput;
    if (!document->m_locks.empty()) return Kora::eLockViolation;
    if (kodbHostApplicationServices()->workingDatabase() == document->database())
        kodbHostApplicationServices()->setWorkingDatabase(nullptr);
    const size_t index = static_cast<size_t>(it - m_documents.begin());
    m_documents.erase(it);
    if (m_current == document)
        m_current = m_documents.empty() ? nullptr : m_documents[std::min(index, m_documents.size() - 1)].get();
    return Kora::eOk;
}

Kora::ErrorStatus KoApDocManager::lockDocument(KoApDocument* document, KoAp::DocLockMode mode, const wchar_t*,
                                               const wchar_t*, bool promptIfFails)
{
    if (!document) return Kora::eNullPtr;
    if (document->lockMode() == KoAp::kXWrite || (mode == KoAp::kXWrite && !document->m_locks.empty())) {
        if (promptIfFails) koedPrompt(L"\nThe drawing is in use by another command.");
        return Kora::eLockViolation;
    }
    document->m_locks.push_back(mode);
    return Kora::eOk;
}

Kora::ErrorStatus KoApDocManager::unlockDocument(KoApDocument* document)
{
    if (!document || document->m_locks.empty()) return Kora::eNotApplicable;
    document->m_locks.pop_back();
    return Kora::eOk;
}

void KoApDocManager::executeInApplicationContext(void (*procedure)(void*), void* data)
{
    m_jobs.emplace_back(procedure, data);
    if (!koraCommandActive()) runPendingJobs();
}

void KoApDocManager::runPendingJobs()
{
    // A job may queue further jobs; they run in the same pass.
    for (size_t i = 0; i < m_jobs.size(); ++i) m_jobs[i].first(m_jobs[i].second);
    m_jobs.clear();
}

KoApDocManager* koDocManagerPtr()
{
    static KoApDocManager manager;
    return &manager;
}

KoDbDatabase* KoDbHostApplicationServices::workingDatabase() const
{
    if (m_working) return m_working;
    const KoApDocument* doc = koDocManagerPtr()->curDocument();
    return doc ? doc->database() : nullptr;
}

Kora::ErrorStatus KoDbHostApplicationServices::findFile(wchar_t* fileOut, int maxChars, const wchar_t* name, KoDbDatabase*)
{
    if (maxChars <= 0) return Kora::eInvalidInput;
    return koedFindFile(name, fileOut, static_cast<size_t>(maxChars)) == KORTNORM ? Kora::eOk : Kora::eFileNotFound;
}

KoDbHostApplicationServices* kodbHostApplicationServices()
{
    static KoDbHostApplicationServices services;
    return &services;
}

namespace Kora::Runtime {

int& commandDepth()
{
    static int depth = 0;
    return depth;
}

}  // namespace Kora::Runtime

bool koraCommandActive() { return Kora::Runtime::commandDepth() > 0; }
