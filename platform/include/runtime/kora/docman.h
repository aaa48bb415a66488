// Documents: the drawings open in the host, the current one, document
// locks, and jobs that run in the application context once the current
// command has ended.
#pragma once

#include <memory>
#include <vector>

#include "kora/db/database.h"

namespace KoAp {
enum DocLockMode : int {
    kNone = 0x00,
    kAutoWrite = 0x01,
    kNotLocked = 0x02,
    kWrite = 0x04,
    kProtectedAutoWrite = 0x08,
    kRead = 0x20,
    kXWrite = 0x40,
};
}  // namespace KoAp

struct KoDbDxfReadReport;

class KORA_API KoApDocument {
public:
    KoApDocument(std::unique_ptr<KoDbDatabase> database, KoString fileName, KoString title);
    ~KoApDocument();
    KoApDocument(const KoApDocument&) = delete;
    KoApDocument& operator=(const KoApDocument&) = delete;

    KoDbDatabase* database() const { return m_database.get(); }
    // The drawing's file ("" until it is saved for the first time).
    const KoString& fileName() const { return m_fileName; }
    void setFileName(const KoString& fileName) { m_fileName = fileName; }
    // What the user sees as its name ("Drawing1", or the file's name).
    const KoString& docTitle() const { return m_title; }
    void setDocTitle(const KoString& title) { m_title = title; }

    KoAp::DocLockMode lockMode() const;
    // The selection made before a command (pick-first).
    const KoDbObjectIdArray& pickfirst() const { return m_pickfirst; }
    void setPickfirst(KoDbObjectIdArray ids) { m_pickfirst = std::move(ids); }

private:
    friend class KoApDocManager;
    std::unique_ptr<KoDbDatabase> m_database;
    KoString m_fileName;
    KoString m_title;
    std::vector<KoAp::DocLockMode> m_locks;
    KoDbObjectIdArray m_pickfirst;
};

class KORA_API KoApDocManager {
public:
    KoApDocManager();
    ~KoApDocManager();

    KoApDocument* curDocument() const { return m_current; }
    KoApDocument* mdiActiveDocument() const { return m_current; }
    int documentCount() const { return static_cast<int>(m_documents.size()); }
    KoApDocument* document(int index) const;
    Kora::ErrorStatus setCurDocument(KoApDocument* document);

    // A new drawing with the defaults of a new database ("Drawing<n>"),
    // made current.
    Kora::ErrorStatus appContextNewDocument(const wchar_t* templateName = nullptr);
    // Opens a drawing file (DXF) as a new current document. A file that
    // cannot be read leaves every open document as it was; `message` says
    // why (file, line and what was wrong). A drawing is opened in recover
    // mode: what was put right while reading and auditing it is in `report`.
    Kora::ErrorStatus appContextOpenDocument(const wchar_t* fileName, KoString* message = nullptr,
                                             KoDbDxfReadReport* report = nullptr);
    // Writes a document to a file (its own file when fileName is null)
    // and makes that its file. The old file survives a failed save.
    Kora::ErrorStatus saveDocument(KoApDocument* document, const wchar_t* fileName = nullptr, KoString* message = nullptr);
    // Closes a document; the next one (if any) becomes current.
    Kora::ErrorStatus closeDocument(KoApDocument* document);

    // Document locks nest; eLockViolation when a write lock is asked while
    // another command holds an exclusive one.
    Kora::ErrorStatus lockDocument(KoApDocument* document, KoAp::DocLockMode mode = KoAp::kWrite,
                                   const wchar_t* globalCommandName = nullptr, const wchar_t* localCommandName = nullptr,
                                   bool promptIfFails = true);
    Kora::ErrorStatus unlockDocument(KoApDocument* document);

    // Queues a job that runs after the current command has ended (at once
    // when no command runs).
    void executeInApplicationContext(void (*procedure)(void*), void* data);
    // Runs the queued jobs (the command line does it after every command).
    void runPendingJobs();

private:
    std::vector<std::unique_ptr<KoApDocument>> m_documents;
    KoApDocument* m_current = nullptr;
    int m_untitledCount = 0;
    std::vector<std::pair<void (*)(void*), void*>> m_jobs;
};

KORA_API KoApDocManager* koDocManagerPtr();

// Services of the host that databases use: the working database and file
// search.
class KORA_API KoDbHostApplicationServices {
public:
    // The current document's database unless one was set explicitly.
    KoDbDatabase* workingDatabase() const;
    void setWorkingDatabase(KoDbDatabase* database) { m_working = database; }
    // Finds a file as koedFindFile does; eFileNotFound when it is nowhere.
    Kora::ErrorStatus findFile(wchar_t* fileOut, int maxChars, const wchar_t* name, KoDbDatabase* database = nullptr);

private:
    KoDbDatabase* m_working = nullptr;
};

KORA_API KoDbHostApplicationServices* kodbHostApplicationServices();

// True while a command runs (jobs wait until it has ended).
KORA_API bool koraCommandActive();
