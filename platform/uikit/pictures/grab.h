// Grabs pictures of modal dialogs drawn offscreen: the kit's own pictures
// tool and the module's use it alike.
#pragma once

#include <QApplication>
#include <QBuffer>
#include <QTimer>
#include <QWidget>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "kora/atomicfile.h"

namespace Kora::Ui::Pictures {

// The folders every picture is written into, and the failures so far.
inline std::vector<std::filesystem::path> folders;
inline int failures = 0;

// Grabs the modal dialog the call shows, then closes it.
inline void picture(const char* name, const std::function<void()>& show)
{
    QTimer::singleShot(100, [name] {
        QWidget* dialog = QApplication::activeModalWidget();
        if (!dialog) {
            std::fprintf(stderr, "pictures: %s was not shown\n", name);
            ++failures;
            return;
        }
        QByteArray png;
        QBuffer buffer(&png);
        buffer.open(QIODevice::WriteOnly);
        dialog->grab().save(&buffer, "PNG");
        for (const std::filesystem::path& folder : folders) {
            std::error_code ec;
            std::filesystem::create_directories(folder, ec);
            const auto written = Kora::writeFileAtomically(folder / (std::string(name) + ".png"), std::string_view(png.constData(), png.size()));
            if (!written) {
                std::fprintf(stderr, "pictures: %s\n", written.error().message.c_str());
                ++failures;
            }
        }
        QMetaObject::invokeMethod(dialog, "reject");
    });
    show();
}

}  // namespace Kora::Ui::Pictures
