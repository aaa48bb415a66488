// English texts of the DGN commands module.
#include "kora/resources.h"

namespace {

const KoResourceString kStrings[] = {
    // Local command names: import, export and mapping
    {109, L"-DGNIMPORT"},
    {110, L"DGNEXPORT"},
    {111, L"DGNMAPPING"},
    {112, L"-DGNEXPORT"},
    {113, L"DGNIMPORT"},
    // Export command
    {114, L"Export a dgn file"},
    {115, L"Enter filename for DGN export <%s>: "},
    {116, L"Invalid path."},
    {117, L"A file with this name already exists."},
    {118, L"Do you want to replace it? [Yes/No] <No>: "},
    {120, L"\nTranslation successful."},
    {121, L"\nTranslation failed."},
    {122, L"This Drawing contains entities Which cannot output to DGN, Do you want to continue?"},
    {123, L"This Drawing contains entities Which cannot output to DGN, Do you want to continue? [Yes/No] <No>: "},
    // Import command: file choice
    {124, L"Import a dgn file"},
    {125, L"Enter filename for DGN import:"},
    {126, L"Invalid or unsupported DGN file."},
    // Mapping setups dialog: user label, standard setup, list columns
    {127, L"Current user: %s"},
    {128, L"Standard"},
    {129, L"Standard mapping setup"},
    {130, L"Name"},
    {131, L"Type"},
    // New setup dialog: proposed names and the duplicate-name message
    {132, L"Copy of %s"},
    {133, L"Copy of %s (%d)"},
    {134, L"Mapping Setup - Name Already Exists"},
    {135, L"A mapping setup named \"%s\" already exists. Please enter a different name."},
    // Mapping modify dialog: title, tabs, direction texts
    {136, L"Edit Mapping Setup - %s"},
    {137, L"Layer"},
    {138, L"Linetype"},
    {139, L"Lineweight"},
    {140, L"Color"},
    {141, L"Specify property mapping for DGN import"},
    {142, L"Specify property mapping for DGN export"},
    // Setup lists: type column and context menu
    {143, L"Import"},
    {144, L"Export"},
    {145, L"&New..."},
    {146, L"&Rename"},
    {147, L"&Modify..."},
    {148, L"&Delete"},
    // Setup naming: length and character checks
    {149, L"Maximum length allowed is %d characters."},
    {150, L"Mapping Setup - Unsupported Characters"},
    {151, L"The name contains unsupported characters. \nThe following characters are not supported: \n\\<>/?:;*|,=`"},
    // Mapping grid: linetype choice and context menu
    {152, L"More..."},
    {153, L"&Copy"},
    {154, L"&Paste"},
    {155, L"&Add Color..."},
    {156, L"&Remove Row"},
    // Mapping modify dialog: add-properties buttons
    {157, L"Add properties from DGN file"},
    {158, L"Add properties from drawing file"},
    // Setup lists: delete confirmation
    {159, L"Are you sure you want to delete \"%s\"?"},
    // Export command: 2D seed for a 3D drawing
    {160, L"Need 3d seed file."},
    // Mapping grid: remove row confirmation
    {161, L"Are you sure you want to remove this mapping row ?"},
    // Import into a new drawing: command name of the document lock
    {162, L"Group of commands"},
    // Mapping grid: lineweight unit
    {163, L"mm"},
    // Import and export: a translation the user stopped
    {164, L"\nTranslation cancelled."},
    // Import and export: the title of the progress meter
    {165, L"Importing DGN file"},
    {166, L"Exporting DGN file"},
    // Export settings dialog: existing references, tabs, seed browse
    {400, L"Prompt to overwrite"},
    {401, L"Overwrite without prompting "},
    {402, L"Do not overwrite "},
    {403, L"Layer"},
    {404, L"LineType"},
    {405, L"LineWeight"},
    {406, L"Color"},
    {407, L"Select Seed File"},
    // Command-line prompts: model, units and mapping setup
    {408, L"Enter name of model or [?] <%s>:"},
    {409, L"Default"},
    {410, L"There is no %s in <%s>:"},
    {411, L"Enter model(s) to list <*>:"},
    {412, L"Master Sub _Master Sub"},
    {413, L"Specify conversion units [Master/Sub] <%s>: "},
    {414, L"Master"},
    {415, L"Sub"},
    {416, L"Specify mapping setup or [?] <%s>:"},
    {417, L"Enter mapping setup(s) to list <*>:"},
    {418, L"Import mapping setups:"},
    {419, L"%s not found"},
    // Export command: version, seed file, overwrite and access messages
    {420, L"V7 V8 7 8 _V7 V8 7 8 "},
    {421, L"Enter DGN file format [V7/V8] <%s>: "},
    {422, L"Specify seed file or [?] <%s>"},
    {423, L"Enter seed file(s) to list <*>:"},
    {424, L"Invalid file."},
    {425, L"The selected seed file format does not match the specified input file format. Do you want to choose another DGN output file format?"},
    {426, L"An unsupported DGN file was detected. Only V7 and V8 DGN files are supported. Please enter the file name for DGN input:"},
    {427, L"File access error."},
    {428, L"%s already exists.\nDo you want to replace it?"},
    {429, L"%s already exist.\nDo you want to replace them?"},
    // Import command: the selected underlay question
    {430, L"Do you want to import the current selected DGN underlay?[Yes/No]<Yes>"},
    {431, L"Yes No _Yes No"},
    // Import settings dialog: existing references and tabs
    {600, L"Prompt to overwrite"},
    {601, L"Overwrite without prompting "},
    {602, L"Do not overwrite "},
    {603, L"Layer"},
    {604, L"Linetype"},
    {605, L"Lineweight"},
    {606, L"Color"},
    // Unit names
    {700, L"Custom"},
    {701, L"Inches"},
    {702, L"Feet"},
    {703, L"Miles"},
    {704, L"Millimeters"},
    {705, L"Centimeters"},
    {706, L"Meters"},
    {707, L"Kilometers"},
    {708, L"Microinches"},
    {709, L"Nanometers"},
    {710, L"Micrometers"},
    {711, L"Decimeters"},
    {712, L"Yards"},
    {713, L"Megameters"},
    {714, L"Picometers"},
    // Bind command
    {715, L"Specify dgnreference name to bind <?>:"},
    {716, L"Invalid Input!"},
    {717, L"Bind Success!"},
    {718, L"Please select dgnreference objects to bind:"},
    {719, L"Invalid names:"},
    {720, L"Please set bind type[Bind(B)/Insert(I)]<Bind>:"},
    {721, L"Bind Insert _Bind Insert"},
    {722, L"Bind Failed!"},
    {723, L"All Bind Success!"},
    {724, L"All Bind Failed!"},
    {725, L"There are %d dgnreferences bind success!\r\nThe following dgnreference bind failed:"},
    // Local command names: attach and bind
    {903, L"DGNATTACH"},
    {904, L"-DGNATTACH"},
    {905, L"DGNBIND"},
    {906, L"-DGNBIND"},
    // Bind command: locked layer
    {907, L"\n%s is on lock layer,cannot be detached."},
    // Attach command: path prompt
    {1022, L"Path to DGN file to attach: "},
    {1023, L"Filename cannot be blank"},
    // Attach command: file dialog, placement, file and account messages
    {20650, L"Select Reference File"},
    {20659, L"\nSpecify the insertion point: "},
    {20661, L"\nSpecify the rotate angle <0>: "},
    {20687, L"You have selected an unsupported DGN file, only V7 and V8 files are supported."},
    {20688, L"\nSpecify the scale factor <%g>: "},
    {22664, L"Not find file %s."},
    {22665, L"Cannot attach: the drawing already has a block named \"%s\"."},
    {22667, L"Microstation DGN(*.dgn)|All DGN File(*.*)"},
    {22671, L"There is no model in the selected DGN file. Please select again."},
    {22673, L"Please enter the account number:"},
    {22674, L"Please input the password:"},
    {22675, L"Not find file %ls,or wrong account password."},
    // Setup store file: a save that did not reach the file
    {22676, L"\nCannot save %s: %s."},
};

}  // namespace

extern "C" __attribute__((visibility("default"))) const KoResourceString* koraResourceStrings(size_t* count)
{
    *count = sizeof(kStrings) / sizeof(kStrings[0]);
    return kStrings;
}
