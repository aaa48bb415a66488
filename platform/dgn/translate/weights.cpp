#include "kora/dgn/translate.h"

namespace Kora::Dgn {

DgnNameMap defaultLineWeightMap(bool import)
{
    struct Pair {
        const wchar_t* source;
        const wchar_t* target;
    };
    // Several sources share a target, and the two directions are not each
    // other's inverse (12 and 13 import as 158 but 158 exports as 11).
    static constexpr Pair kImport[] = {
        {L"0", L"0"},     {L"1", L"13"},    {L"2", L"30"},    {L"3", L"40"},    {L"4", L"53"},
        {L"5", L"70"},    {L"6", L"80"},    {L"7", L"100"},   {L"8", L"106"},   {L"9", L"120"},
        {L"10", L"140"},  {L"11", L"158"},  {L"12", L"158"},  {L"13", L"158"},  {L"14", L"200"},
        {L"15", L"211"},  {L"16", L"211"},  {L"17", L"211"},  {L"18", L"211"},  {L"19", L"211"},
        {L"20", L"211"},  {L"21", L"211"},  {L"22", L"211"},  {L"23", L"211"},  {L"24", L"211"},
        {L"25", L"211"},  {L"26", L"211"},  {L"27", L"211"},  {L"28", L"211"},  {L"29", L"211"},
        {L"30", L"211"},  {L"31", L"211"},  {L"ByCell", L"ByBlock"}, {L"ByLevel", L"ByLayer"},
    };
    static constexpr Pair kExport[] = {
        {L"0", L"0"},     {L"5", L"0"},     {L"9", L"1"},     {L"13", L"1"},    {L"15", L"1"},
        {L"18", L"1"},    {L"20", L"1"},    {L"25", L"2"},    {L"30", L"2"},    {L"35", L"2"},
        {L"40", L"3"},    {L"50", L"4"},    {L"53", L"4"},    {L"60", L"4"},    {L"70", L"5"},
        {L"80", L"6"},    {L"90", L"6"},    {L"100", L"7"},   {L"106", L"8"},   {L"120", L"9"},
        {L"140", L"10"},  {L"158", L"11"},  {L"200", L"14"},  {L"211", L"15"},
        {L"ByBlock", L"ByCell"}, {L"ByLayer", L"ByLevel"},
    };
    DgnNameMap table;
    if (import) {
        for (const Pair& p : kImport) table.emplace(p.source, p.target);
    } else {
        for (const Pair& p : kExport) table.emplace(p.source, p.target);
    }
    return table;
}

} // namespace Kora::Dgn
