#include "kora/ui/filedialog.h"

#include <QApplication>
#include <QFileDialog>
#include <QFileInfo>

#include <cstdlib>
#include <cstring>

#include "kora/config.h"
#include "uikitqt.h"

using namespace Kora::Ui;

namespace {

constexpr int kSettingsBranch = 4;

QStringList split(const wchar_t* text, QChar separator)
{
    return text && *text ? toQ(text).split(separator) : QStringList();
}

// "Desc (*.a)|*.a|..." pairs, or descriptions alone: a list is taken as
// pairs when every second entry is a bare pattern.
QStringList nameFilters(const wchar_t* filters)
{
    const QStringList parts = split(filters, QLatin1Char('|'));
    bool pairs = parts.size() % 2 == 0 && !parts.isEmpty();
    for (int i = 1; pairs && i < parts.size(); i += 2)
        pairs = parts[i].startsWith(QLatin1Char('*')) && !parts[i].contains(QLatin1Char(' '));
    if (!pairs) return parts;
    QStringList result;
    for (int i = 0; i < parts.size(); i += 2) {
        // The description already names its patterns, or gets them.
        const QString& description = parts[i];
        result << (description.contains(QLatin1Char('(')) ? description : description + QStringLiteral(" (") + parts[i + 1] + QLatin1Char(')'));
    }
    return result;
}

KoString folderKey(const KoString& name) { return KoString(L"UserInterfaceSettings\\FileDialogFolders\\") + name; }

QString rememberedFolder(const KoString& name)
{
    KoraVariant value;
    if (koraConfig()->getValue(kSettingsBranch, folderKey(name), value) != Kora::eOk) return QString();
    return toQ(value.stringValue());
}

}  // namespace

int getFileNameByFileDialog(const wchar_t* title, const wchar_t* initialPath, const wchar_t* defaultExtension, unsigned flags,
                            const wchar_t* filters, KoString& result, int* filterIndex, const wchar_t* dialogName)
{
    const KoString name = dialogName && *dialogName ? KoString(dialogName) : KoString(title ? title : L"");
    Test::FileDialogAsked asked;
    asked.title = title ? title : L"";
    asked.save = flags & KOFD_SAVE;
    const QStringList names = nameFilters(filters);
    for (const QString& f : names) asked.filters.push_back(fromQ(f));
    asked.filterIndex = filterIndex && *filterIndex >= 0 && *filterIndex < names.size() ? *filterIndex : 0;
    QString start = toQ(initialPath ? initialPath : L"");
    if (!start.contains(QLatin1Char('/'))) {
        const QString folder = rememberedFolder(name);
        if (!folder.isEmpty()) start = folder + QLatin1Char('/') + start;
    }
    asked.initialPath = fromQ(start);

    Test::FileDialogAnswer answer;
    if (std::optional<Test::FileDialogAnswer> queued = Test::takeFileDialogAnswer(asked)) {
        answer = *queued;
    } else {
        if (!ensureApplication()) return kNeedsDisplay;
        QFileDialog dialog(QApplication::activeModalWidget(), toQ(asked.title));
        dialog.setOption(QFileDialog::DontUseNativeDialog);
        dialog.setAcceptMode(asked.save ? QFileDialog::AcceptSave : QFileDialog::AcceptOpen);
        dialog.setFileMode(asked.save || !(flags & KOFD_FILEMUSTEXIST) ? QFileDialog::AnyFile : QFileDialog::ExistingFile);
        dialog.setOption(QFileDialog::DontConfirmOverwrite, !(flags & KOFD_OVERWRITEPROMPT));
        if (!names.isEmpty()) {
            dialog.setNameFilters(names);
            dialog.selectNameFilter(names[asked.filterIndex]);
        }
        const QFileInfo startInfo(start);
        if (start.endsWith(QLatin1Char('/')) || startInfo.isDir()) dialog.setDirectory(start);
        else if (!start.isEmpty()) {
            dialog.setDirectory(startInfo.absolutePath());
            dialog.selectFile(startInfo.fileName());
        }
        if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return 1;
        answer.path = fromQ(dialog.selectedFiles().first());
        answer.filterIndex = std::max<int>(0, names.indexOf(dialog.selectedNameFilter()));
    }
    if (answer.path.isEmpty()) return 1;

    QString path = toQ(answer.path);
    const QStringList extensions = split(defaultExtension, QLatin1Char(';'));
    if (asked.save && !extensions.isEmpty() && QFileInfo(path).suffix().isEmpty()) {
        const QString extension = extensions.value(answer.filterIndex, extensions.first());
        if (!extension.isEmpty() && extension != QLatin1String("*")) path += QLatin1Char('.') + extension;
    }
    const QFileInfo chosen(path);
    koraConfig()->setValue(kSettingsBranch, folderKey(name), KoraVariant(fromQ(chosen.absolutePath())));
    result = fromQ(chosen.absoluteFilePath());
    if (filterIndex) *filterIndex = answer.filterIndex;
    return 0;
}

int koedGetFileNavDialog(const wchar_t* title, const wchar_t* defaultPath, const wchar_t* extensions, int flags, koresbuf** result)
{
    if (!result) return KORTERROR;
    *result = nullptr;
    // One filter naming every extension, then all files.
    const QStringList names = split(extensions, QLatin1Char(';'));
    QStringList patterns;
    for (const QString& extension : names) patterns << QStringLiteral("*.") + extension;
    QString filters;
    if (!names.isEmpty()) filters = QStringLiteral("%1 (%2)|").arg(names.join(QLatin1Char(' ')).toUpper(), patterns.join(QLatin1Char(' ')));
    filters += QStringLiteral("All files (*)");
    KoString chosen;
    const unsigned dialogFlags = (flags & KOFD_SAVE) ? KOFD_SAVE | KOFD_OVERWRITEPROMPT : KOFD_FILEMUSTEXIST;
    const int rc = getFileNameByFileDialog(title, defaultPath, nullptr, dialogFlags, fromQ(filters), chosen);
    if (rc == kNeedsDisplay) return KORTERROR;
    if (rc != 0) return KORTCAN;
    koresbuf* rb = koutNewRb(KORTSTR);
    const size_t bytes = (chosen.str().size() + 1) * sizeof(wchar_t);
    rb->resval.rstring = static_cast<wchar_t*>(std::malloc(bytes));
    std::memcpy(rb->resval.rstring, chosen.c_str(), bytes);
    *result = rb;
    return KORTNORM;
}
