#include "kora/ui/attachdialog.h"

#include <cmath>
#include <cwchar>
#include <numbers>

#include "kora/msgbox.h"
#include "kora/ui/dialog.h"
#include "kora/ui/filedialog.h"

using namespace Kora::Ui;
using namespace Kora::Ui::AttachDialog;

namespace {

bool readNumber(const KoString& text, double& value)
{
    KoString trimmed = text;
    trimmed.trim();
    if (trimmed.isEmpty()) return false;
    wchar_t* end = nullptr;
    value = std::wcstod(trimmed.c_str(), &end);
    return end && *end == 0 && std::isfinite(value);
}

constexpr int kExistingLabel = 716;
constexpr int kHelp = 9;

KoString number(double value) { return KoString::format(L"%.10g", value); }

class AttachOptionsDialog final : public CKoUiDialog {
public:
    AttachOptionsDialog(const KoUiDgnAttachSource& source, KoUiDgnAttachData& data)
        : CKoUiDialog(kDialogId, L"Attach DGN Underlay", 520, 380, L"DgnAttachOptionsDialog"),
          m_source(source),
          m_data(data),
          m_path(source.path),
          m_models(source.models),
          m_activePathText(source.path)
    {
    }

protected:
    void CreateControls() override
    {
        add<Label>(0, L"File:", Rect{10, 12, 80, 20});
        m_pathLabel.create(*this, kPath, m_path, {95, 12, 325, 20}, Elide::Middle);
        add<Button>(kBrowse, L"Browse...", Rect{430, 8, 80, 26});
        add<Label>(0, L"Saved path:", Rect{10, 42, 80, 20});
        m_activePath.create(*this, kActivePath, m_path, {95, 40, 415, 22});

        add<Label>(0, L"Model:", Rect{10, 72, 200, 20});
        m_modelList.create(*this, kModels, {10, 92, 200, 150});
        add<Label>(kExistingLabel, L"Attached already:", Rect{10, 250, 200, 20});
        m_existing.create(*this, kExisting, {10, 270, 200, 62});

        add<Button>(kPickInsertion, L"Insertion point: specify on-screen", Rect{230, 72, 280, 22}, Button::Kind::Check);
        const wchar_t* axes[] = {L"X:", L"Y:", L"Z:"};
        for (int i = 0; i < 3; ++i) {
            add<Label>(0, axes[i], Rect{250, 100 + 28 * i, 20, 22});
            add<Edit>(kInsertionX + i, L"", Rect{275, 98 + 28 * i, 120, 22});
        }
        add<Button>(kPickScale, L"Scale: specify on-screen", Rect{230, 186, 280, 22}, Button::Kind::Check);
        add<Edit>(kScale, L"", Rect{275, 212, 120, 22});
        add<Button>(kPickRotation, L"Rotation: specify on-screen", Rect{230, 242, 280, 22}, Button::Kind::Check);
        add<Label>(0, L"Angle:", Rect{230, 270, 45, 22});
        add<Edit>(kRotation, L"", Rect{275, 268, 120, 22});
        add<Button>(kMasterUnits, L"Master units", Rect{230, 300, 130, 22}, Button::Kind::Radio, 1);
        add<Button>(kSubUnits, L"Sub units", Rect{370, 300, 130, 22}, Button::Kind::Radio, 1);

        add<Button>(KOID_OK, L"OK", Rect{250, 344, 80, 26}, Button::Kind::Default);
        add<Button>(KOID_CANCEL, L"Cancel", Rect{340, 344, 80, 26});
        add<Button>(kHelp, L"Help", Rect{430, 344, 80, 26});
    }

    bool OnInitDialog() override
    {
        SetControlAnchor(kPath, kSizeX);
        SetControlAnchor(kBrowse, kMoveX);
        SetControlAnchor(kActivePath, kSizeX);
        SetControlAnchor(kModels, kSizeY);
        SetControlAnchor(kExistingLabel, kMoveY);
        SetControlAnchor(kExisting, kMoveY);
        for (int id : std::initializer_list<int>{KOID_OK, KOID_CANCEL, kHelp}) SetControlAnchor(id, kMoveXY);
        SetMinTrackSize(520, 380);
        for (const KoString& item : m_source.existingItems) m_existing.addString(item);
        fillModels();
        m_pickInsertion = m_data.pickInsertion != 0;
        m_pickScale = m_data.pickScale != 0;
        m_pickRotation = m_data.pickRotation != 0;
        m_units = m_data.useMasterUnits ? 0 : 1;
        for (int i = 0; i < 3; ++i) m_point[i] = number(m_data.insertionPoint[i]);
        m_scale = number(m_data.scale);
        m_rotation = number(m_data.rotation * 180.0 / std::numbers::pi);
        UpdateData(false);
        enableValues();
        return true;
    }

    void DoDataExchange(DataExchange& dx) override
    {
        dx.check(kPickInsertion, m_pickInsertion);
        dx.check(kPickScale, m_pickScale);
        dx.check(kPickRotation, m_pickRotation);
        dx.radio({kMasterUnits, kSubUnits}, m_units);
        for (int i = 0; i < 3; ++i) dx.text(kInsertionX + i, m_point[i]);
        dx.text(kScale, m_scale);
        dx.text(kRotation, m_rotation);
        dx.text(kActivePath, m_activePathText);
    }

    void OnCommand(int id) override
    {
        if (id == kPickInsertion || id == kPickScale || id == kPickRotation) return enableValues();
        if (id == kBrowse) return browse();
        if (id == kHelp) return OnHelp();
        CKoUiDialog::OnCommand(id);
    }

    void OnHelp() override { koedHelp(nullptr, L"DGNATTACH", 0); }

    void OnOK() override
    {
        if (!UpdateData(true)) return;
        const KoString problem = check();
        if (!problem.isEmpty()) {
            koraMessageBox(problem, nullptr, KOMB_OK | KOMB_ICONWARNING);
            return;
        }
        m_data.sourcePath = m_path;
        m_data.activePath = m_activePathText.isEmpty() ? m_path : m_activePathText;
        m_data.chosenModels = {m_models[m_modelList.curSel()]};
        m_data.pickInsertion = m_pickInsertion;
        m_data.pickScale = m_pickScale;
        m_data.pickRotation = m_pickRotation;
        m_data.useMasterUnits = m_units == 0 ? 1 : 0;
        EndDialog(KOID_OK);
    }

private:
    // What keeps OK from closing, or nothing.
    KoString check()
    {
        if (m_path.isEmpty() || m_models.empty()) return L"Choose a DGN file with at least one model.";
        if (m_modelList.curSel() < 0) return L"Choose the model to attach.";
        double point[3] = {};
        for (int i = 0; i < 3; ++i)
            if (!m_pickInsertion && !readNumber(m_point[i], point[i])) return L"The insertion point must be three numbers.";
        double scale = m_data.scale;
        if (!m_pickScale && (!readNumber(m_scale, scale) || scale <= 0.0)) return L"The scale must be a number greater than 0.";
        double degrees = 0.0;
        if (!m_pickRotation && !readNumber(m_rotation, degrees)) return L"The rotation must be a number of degrees.";
        // Values given on screen keep the command's defaults in the block.
        if (!m_pickInsertion) std::copy(point, point + 3, m_data.insertionPoint);
        if (!m_pickScale) m_data.scale = scale;
        if (!m_pickRotation) m_data.rotation = degrees * std::numbers::pi / 180.0;
        return {};
    }

    void fillModels()
    {
        m_modelList.resetContent();
        for (const KoString& model : m_models) m_modelList.addString(model);
        if (!m_models.empty()) m_modelList.setCurSel(0);
        m_pathLabel.setText(m_path);
    }

    void enableValues()
    {
        UpdateData(true);
        for (int i = 0; i < 3; ++i) GetDlgItem(kInsertionX + i)->enable(!m_pickInsertion);
        GetDlgItem(kScale)->enable(!m_pickScale);
        GetDlgItem(kRotation)->enable(!m_pickRotation);
    }

    void browse()
    {
        KoString chosen;
        if (getFileNameByFileDialog(L"Select Reference File", m_path, L"dgn", KOFD_FILEMUSTEXIST, L"DGN files (*.dgn)|All files (*)", chosen,
                                    nullptr, L"Select Reference File") != 0)
            return;
        std::vector<KoString> models = m_source.modelsOf ? m_source.modelsOf(chosen) : std::vector<KoString>{};
        if (models.empty()) {
            koraMessageBox(L"There is no model in the selected DGN file, or it is not a DGN file.", nullptr, KOMB_OK | KOMB_ICONWARNING);
            return;
        }
        m_path = chosen;
        m_models = std::move(models);
        m_activePath.setText(chosen);
        fillModels();
    }

    const KoUiDgnAttachSource& m_source;
    KoUiDgnAttachData& m_data;
    KoString m_path;
    std::vector<KoString> m_models;
    KoString m_activePathText;
    Label m_pathLabel;
    Edit m_activePath;
    ListBox m_modelList;
    ListBox m_existing;
    int m_pickInsertion = 1;
    int m_pickScale = 1;
    int m_pickRotation = 0;
    int m_units = 0;
    KoString m_point[3];
    KoString m_scale;
    KoString m_rotation;
};

}  // namespace

int koraDgnAttachOptionsDialog(const KoUiDgnAttachSource& source, KoUiDgnAttachData& data)
{
    KoUiDgnAttachData edited = data;
    AttachOptionsDialog dialog(source, edited);
    const int result = dialog.DoModal();
    if (result == KOID_OK) data = std::move(edited);
    return result;
}
