#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <cctype>
#include <map>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "kora/kostring.h"
#include "kora/profile.h"

namespace fs = std::filesystem;

namespace {

// Each test works in a fresh folder under the test run's per-user root.
class Profile : public ::testing::Test {
protected:
    void SetUp() override
    {
        const char* root = std::getenv("KORA_USER_ROOT");
        ASSERT_NE(root, nullptr) << "tests run with KORA_USER_ROOT set";
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        m_folder = fs::path(root) / "profile" / (std::string(info->test_suite_name()) + "." + info->name());
        fs::remove_all(m_folder);
        fs::create_directories(m_folder);
    }
    void TearDown() override { fs::remove_all(m_folder); }

    // A file of the test folder, as the wide name the profile functions take.
    std::wstring file(const char* name) const { return KoString::fromUtf8((m_folder / name).string()).str(); }
    fs::path diskPath(const std::wstring& name) const { return KoString(name).toUtf8(); }

    // Files are put in place as a new inode, the way every editor that
    // saves atomically does.
    void putBytes(const std::wstring& name, const std::string& bytes) const
    {
        const fs::path temp = m_folder / "put.tmp";
        std::ofstream(temp, std::ios::binary) << bytes;
        fs::rename(temp, diskPath(name));
    }
    std::string bytes(const std::wstring& name) const
    {
        std::ifstream in(diskPath(name), std::ios::binary);
        std::ostringstream out;
        out << in.rdbuf();
        return out.str();
    }
    ino_t inode(const std::wstring& name) const
    {
        struct stat st {};
        stat(diskPath(name).c_str(), &st);
        return st.st_ino;
    }
    // Whether another process could take the file's lock now.
    bool lockIsFree(const std::wstring& name) const
    {
        const int fd = open((diskPath(name).string() + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
        const bool free = fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) == 0;
        if (fd >= 0) close(fd);
        return free;
    }

    fs::path m_folder;
};

std::wstring read(const wchar_t* section, const wchar_t* key, const std::wstring& file, const wchar_t* def = L"")
{
    std::vector<wchar_t> buffer(4096, L'#');
    koGetPrivateProfileString(section, key, def, buffer.data(), static_cast<unsigned>(buffer.size()), file.c_str());
    return buffer.data();
}

// The returned characters of a list read, zeros included.
std::wstring readList(const wchar_t* section, const std::wstring& file, unsigned size, unsigned* count)
{
    std::vector<wchar_t> buffer(size + 4, L'#');
    *count = koGetPrivateProfileString(section, nullptr, L"unused", buffer.data(), size, file.c_str());
    return std::wstring(buffer.data(), size + 4);
}

bool write(const wchar_t* section, const wchar_t* key, const wchar_t* value, const std::wstring& file)
{
    return koWritePrivateProfileString(section, key, value, file.c_str());
}

std::string utf16le(std::wstring_view text)
{
    std::string out;
    const auto put = [&](unsigned unit) {
        out += static_cast<char>(unit & 0xFF);
        out += static_cast<char>(unit >> 8);
    };
    for (wchar_t ch : text) {
        const auto cp = static_cast<unsigned>(ch);
        if (cp >= 0x10000) {
            put(0xD800 + ((cp - 0x10000) >> 10));
            put(0xDC00 + ((cp - 0x10000) & 0x3FF));
        } else {
            put(cp);
        }
    }
    return out;
}

}  // namespace

TEST_F(Profile, WritesTouchOnlyTheirKeyAndKeepEveryOtherByte)
{
    const std::wstring f = file("hand.ini");
    putBytes(f, "; settings written by hand\n"
                "[General]\n"
                "  Name = old value  \n"
                "Count=3\n"
                "\n"
                "; the next section\n"
                "[Colors]\n"
                "red=1\n"
                "RED=2");  // no final line end

    ASSERT_TRUE(write(L"general", L"NAME", L"new", f));  // key spelling and spacing stay
    ASSERT_TRUE(write(L"General", L"Extra", L"x", f));   // after the last key, before the blank line
    ASSERT_TRUE(write(L"COLORS", L"Red", L"9", f));      // the first of two duplicates
    ASSERT_TRUE(write(L"New", L"k", L"v", f));           // a new section at the end
    EXPECT_EQ(bytes(f), "; settings written by hand\n"
                        "[General]\n"
                        "  Name = new\n"
                        "Count=3\n"
                        "Extra=x\n"
                        "\n"
                        "; the next section\n"
                        "[Colors]\n"
                        "red=9\n"
                        "RED=2\n"
                        "[New]\n"
                        "k=v\n");

    ASSERT_TRUE(write(L"General", L"count", nullptr, f));
    ASSERT_TRUE(write(L"colors", nullptr, nullptr, f));
    ASSERT_TRUE(write(L"General", L"Extra", nullptr, f));
    ASSERT_TRUE(write(L"General", L"Last", L"1", f));  // goes after the key that is now last
    EXPECT_EQ(bytes(f), "; settings written by hand\n"
                        "[General]\n"
                        "  Name = new\n"
                        "Last=1\n"
                        "\n"
                        "; the next section\n"
                        "[New]\n"
                        "k=v\n");
    // Deleting what is not there changes nothing.
    EXPECT_TRUE(write(L"General", L"absent", nullptr, f));
    EXPECT_TRUE(write(L"Absent", nullptr, nullptr, f));
    EXPECT_EQ(read(L"New", L"k", f), L"v");
}

TEST_F(Profile, WriteSectionReplacesOrRemovesASectionWhole)
{
    const std::wstring f = file("sections.ini");
    putBytes(f, "[A]\na=1\n;inside\nb=2\n\n; about B\n[B]\nx=1\n");
    ASSERT_TRUE(koWritePrivateProfileSection(L"a", L"k=1\0m = 2\0\0", f.c_str()));
    EXPECT_EQ(bytes(f), "[A]\nk=1\nm = 2\n\n; about B\n[B]\nx=1\n");
    EXPECT_EQ(read(L"A", L"M", f), L"2");
    EXPECT_EQ(read(L"A", L"a", f, L"gone"), L"gone");
    ASSERT_TRUE(koWritePrivateProfileSection(L"B", L"\0", f.c_str()));
    EXPECT_EQ(bytes(f), "[A]\nk=1\nm = 2\n\n; about B\n");
    ASSERT_TRUE(koWritePrivateProfileSection(L"C", L"c=3\0\0", f.c_str()));
    ASSERT_TRUE(koWritePrivateProfileSection(L"A", nullptr, f.c_str()));
    EXPECT_EQ(bytes(f), "[C]\nc=3\n");
    // An entry that would read back as a section header is refused.
    EXPECT_FALSE(koWritePrivateProfileSection(L"C", L"[D]\0\0", f.c_str()));
    EXPECT_EQ(bytes(f), "[C]\nc=3\n");
}

TEST_F(Profile, MissingKeysDefaultsQuotesAndNumbers)
{
    const std::wstring f = file("values.ini");
    putBytes(f, "[S]\nempty=\nquoted=\"  padded  \"\nsingle='x'\nhalf=\"x\nspaced =   a b   \n"
                "num= -12abc\nword=abc\nqnum=\"42\"\n");
    EXPECT_EQ(read(L"S", L"missing", f, nullptr), L"");
    EXPECT_EQ(read(L"S", L"missing", f, L"dflt  "), L"dflt");
    EXPECT_EQ(read(L"Nowhere", L"quoted", f, L"d"), L"d");
    EXPECT_EQ(read(L"S", L"quoted", file("absent.ini").c_str(), L"d"), L"d");
    EXPECT_EQ(read(L"S", L"empty", f, L"d"), L"");
    EXPECT_EQ(read(L"S", L"quoted", f), L"  padded  ");
    EXPECT_EQ(read(L"S", L"single", f), L"x");
    EXPECT_EQ(read(L"S", L"half", f), L"\"x");
    EXPECT_EQ(read(L"S", L"spaced", f), L"a b");

    EXPECT_EQ(static_cast<int>(koGetPrivateProfileInt(L"S", L"num", 7, f.c_str())), -12);
    EXPECT_EQ(koGetPrivateProfileInt(L"S", L"word", 7, f.c_str()), 0u);
    EXPECT_EQ(koGetPrivateProfileInt(L"S", L"qnum", 7, f.c_str()), 42u);
    EXPECT_EQ(static_cast<int>(koGetPrivateProfileInt(L"S", L"missing", -1, f.c_str())), -1);
    EXPECT_EQ(koGetPrivateProfileInt(L"S", L"empty", 5, f.c_str()), 5u);

    unsigned count = 99;
    const std::wstring none = readList(L"Nowhere", f, 16, &count);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(none.substr(0, 2), std::wstring(2, L'\0'));
}

TEST_F(Profile, BufferLimitsCutValuesAndLists)
{
    const std::wstring f = file("limits.ini");
    putBytes(f, "[Zeta]\nlong=" + std::string(3000, 'v') + "\nabc=abc\n[alpha]\n[Mid]\n");

    std::vector<wchar_t> buffer(2046 + 8, L'#');
    EXPECT_EQ(koGetPrivateProfileString(L"Zeta", L"long", L"", buffer.data(), 2046, f.c_str()), 2045u);
    EXPECT_EQ(std::wcslen(buffer.data()), 2045u);
    EXPECT_EQ(buffer[2046], L'#');
    EXPECT_EQ(koGetPrivateProfileString(L"Zeta", L"abc", L"", buffer.data(), 4, f.c_str()), 3u);
    EXPECT_EQ(koGetPrivateProfileString(L"Zeta", L"abc", L"", buffer.data(), 3, f.c_str()), 2u);
    EXPECT_EQ(std::wstring(buffer.data()), L"ab");

    unsigned count = 0;
    std::wstring list = readList(nullptr, f, 64, &count);
    EXPECT_EQ(count, 15u);
    EXPECT_EQ(list.substr(0, 16), std::wstring(L"Zeta\0alpha\0Mid\0\0", 16));  // file order
    list = readList(nullptr, f, 16, &count);  // just fits
    EXPECT_EQ(count, 15u);
    EXPECT_EQ(list.substr(0, 17), std::wstring(L"Zeta\0alpha\0Mid\0\0#", 17));
    list = readList(nullptr, f, 15, &count);  // one short
    EXPECT_EQ(count, 13u);
    EXPECT_EQ(list.substr(0, 16), std::wstring(L"Zeta\0alpha\0Mi\0\0#", 16));
    list = readList(nullptr, f, 9, &count);
    EXPECT_EQ(count, 7u);
    EXPECT_EQ(list.substr(0, 10), std::wstring(L"Zeta\0al\0\0#", 10));
    list = readList(L"zeta", f, 64, &count);
    EXPECT_EQ(count, 9u);
    EXPECT_EQ(list.substr(0, 10), std::wstring(L"long\0abc\0\0", 10));
}

TEST_F(Profile, NamesMatchWithoutCaseAndTheFirstDuplicateWins)
{
    const std::wstring f = file("dups.ini");
    putBytes(f, "[Sect]\na=1\nA=2\n[SECT]\na=3\nb=4\n[\xc3\x84rger]\n\xc3\xa9t\xc3\xa9=summer\nKiss=plain\n");
    EXPECT_EQ(read(L"sect", L"A", f), L"1");
    EXPECT_EQ(read(L"sect", L"b", f, L"hidden"), L"hidden");
    EXPECT_EQ(read(L"\u00e4RGER", L"\u00c9T\u00c9", f), L"summer");
    // Dotless i and long s upper-case to plain I and S.
    EXPECT_EQ(read(L"\u00e4rger", L"k\u0131\u017f\u017f", f), L"plain");

    ASSERT_TRUE(write(L"SECT", L"a", L"one", f));
    EXPECT_EQ(bytes(f).substr(0, 18), "[Sect]\na=one\nA=2\n[");
    ASSERT_TRUE(write(L"sect", L"a", nullptr, f));  // the duplicate behind it shows
    EXPECT_EQ(read(L"Sect", L"a", f), L"2");
    ASSERT_TRUE(write(L"sect", nullptr, nullptr, f));  // so does the second section
    EXPECT_EQ(read(L"Sect", L"a", f), L"3");
    EXPECT_EQ(read(L"Sect", L"b", f), L"4");
}

TEST_F(Profile, FilesFromWindowsReadAndKeepTheirEncoding)
{
    const std::wstring wide = file("utf16.ini");
    putBytes(wide, "\xFF\xFE" + utf16le(L"; Windows\r\n[Setup]\r\nName=Gr\u00f6\u00dfe \U0001F4D0\r\nCount=7\r\n"));
    EXPECT_EQ(read(L"setup", L"name", wide), L"Gr\u00f6\u00dfe \U0001F4D0");
    EXPECT_EQ(koGetPrivateProfileInt(L"Setup", L"Count", 0, wide.c_str()), 7u);
    ASSERT_TRUE(write(L"Setup", L"Name", L"Neu", wide));
    ASSERT_TRUE(write(L"Setup", L"Extra", L"\u00fc\U0001F4D0", wide));
    ASSERT_TRUE(write(L"Other", L"k", L"v", wide));
    EXPECT_EQ(bytes(wide), "\xFF\xFE" + utf16le(L"; Windows\r\n[Setup]\r\nName=Neu\r\nCount=7\r\nExtra=\u00fc\U0001F4D0\r\n"
                                               L"[Other]\r\nk=v\r\n"));

    const std::wstring bom8 = file("utf8bom.ini");
    putBytes(bom8, "\xEF\xBB\xBF[A]\r\nk=\xc3\xa9\r\n");
    EXPECT_EQ(read(L"A", L"k", bom8), L"\u00e9");
    ASSERT_TRUE(write(L"A", L"k2", L"w", bom8));
    EXPECT_EQ(bytes(bom8), "\xEF\xBB\xBF[A]\r\nk=\xc3\xa9\r\nk2=w\r\n");
}

TEST_F(Profile, DamagedFilesLoadWhatCanBeReadAndKeepTheRest)
{
    // Binary garbage, NUL bytes included: reads answer, a write appends and
    // leaves the garbage exactly as it was.
    const std::wstring garbage = file("garbage.ini");
    std::mt19937 random(7);
    std::string noise(65536, '\0');
    for (char& ch : noise) ch = static_cast<char>(random() & 0xFF);
    putBytes(garbage, noise);
    unsigned count = 0;
    readList(nullptr, garbage, 2046, &count);
    EXPECT_EQ(read(L"S", L"k", garbage, L"d"), L"d");
    ASSERT_TRUE(write(L"S", L"k", L"v", garbage));
    EXPECT_TRUE(bytes(garbage).starts_with(noise));
    EXPECT_EQ(read(L"S", L"k", garbage), L"v");

    const std::wstring broken = file("broken.ini");
    putBytes(broken, std::string("[broken\nkey=1\n[ok]\nk=2\nnul=a\0b\n", 31));
    EXPECT_EQ(read(L"broken", L"key", broken, L"d"), L"d");
    EXPECT_EQ(read(L"ok", L"k", broken), L"2");
    std::wstring list = readList(nullptr, broken, 64, &count);
    EXPECT_EQ(list.substr(0, 4), std::wstring(L"ok\0\0", 4));
    EXPECT_EQ(read(L"ok", L"nul", broken), L"a");
    // What was kept without meaning is said, line by line.
    const std::wstring stray = file("stray.ini");
    putBytes(stray, "; comment\nk=above\n\n[S]\nk=1\nnot a key\n");
    const auto problems = koProfileDiagnostics(stray.c_str());
    ASSERT_EQ(problems.size(), 2u);
    EXPECT_EQ(problems[0].code, KoProfileCode::kKeyOutsideSection);
    EXPECT_EQ(problems[0].place.line, 2u);
    EXPECT_EQ(problems[1].code, KoProfileCode::kMeaninglessLine);
    EXPECT_EQ(problems[1].place.line, 6u);
    EXPECT_EQ(problems[1].severity, Kora::Severity::kWarning);
    putBytes(stray, std::string("\xFF\xFE[\0S\0]\0\n\0k\0=\0\x31\0 ", 17));
    ASSERT_EQ(koProfileDiagnostics(stray.c_str()).size(), 1u);
    EXPECT_EQ(koProfileDiagnostics(stray.c_str())[0].code, KoProfileCode::kDamagedText);

    // A 10 MB value is cut on reading and survives a write of another key.
    const std::wstring big = file("big.ini");
    const std::string huge(10 * 1024 * 1024, 'x');
    putBytes(big, "[big]\nv=" + huge + "\nafter=1");
    std::vector<wchar_t> buffer(2046);
    EXPECT_EQ(koGetPrivateProfileString(L"big", L"v", L"", buffer.data(), 2046, big.c_str()), 2045u);
    ASSERT_TRUE(write(L"big", L"after", L"2", big));
    EXPECT_EQ(bytes(big), "[big]\nv=" + huge + "\nafter=2");
}

TEST_F(Profile, RefusedWritesChangeAndCreateNothing)
{
    const fs::path missingFolder = m_folder / "missing";
    EXPECT_FALSE(write(L"S", L"k", L"v", KoString::fromUtf8((missingFolder / "x.ini").string()).str()));
    EXPECT_FALSE(fs::exists(missingFolder));

    // Deleting from a file that is not there does not create it.
    const std::wstring absent = file("absent.ini");
    EXPECT_TRUE(write(L"S", L"k", nullptr, absent));
    EXPECT_FALSE(fs::exists(diskPath(absent)));

    // Something that is not a readable file is never replaced.
    const std::wstring folder = file("folder.ini");
    fs::create_directory(diskPath(folder));
    EXPECT_FALSE(write(L"S", L"k", L"v", folder));
    EXPECT_TRUE(fs::is_directory(diskPath(folder)));
    ASSERT_EQ(koProfileDiagnostics(folder.c_str()).size(), 1u);
    EXPECT_EQ(koProfileDiagnostics(folder.c_str())[0].code, KoProfileCode::kNotAFile);

    // Names and values that would not read back as written.
    const std::wstring f = file("strict.ini");
    putBytes(f, "[S]\nk=1\n");
    EXPECT_FALSE(write(L"S", L"a=b", L"v", f));
    EXPECT_FALSE(write(L"S", L";k", L"v", f));
    EXPECT_FALSE(write(L"S", L"k", L"line\nbreak", f));
    EXPECT_FALSE(write(L"S\n", L"k", L"v", f));
    EXPECT_EQ(bytes(f), "[S]\nk=1\n");

    // A file of 4 GiB (sparse here) is beyond what is read, so never replaced.
    const std::wstring huge = file("huge.ini");
    putBytes(huge, "[S]\nk=1\n");
    fs::resize_file(diskPath(huge), uintmax_t{4} << 30);
    EXPECT_EQ(read(L"S", L"k", huge, L"d"), L"d");
    EXPECT_FALSE(write(L"S", L"k", L"2", huge));
    EXPECT_EQ(fs::file_size(diskPath(huge)), uintmax_t{4} << 30);
    ASSERT_EQ(koProfileDiagnostics(huge.c_str()).size(), 1u);
    EXPECT_EQ(koProfileDiagnostics(huge.c_str())[0].code, KoProfileCode::kTooLarge);
    EXPECT_EQ(koProfileDiagnostics(huge.c_str())[0].severity, Kora::Severity::kError);
}

TEST_F(Profile, AWriteThroughALinkReplacesItsTargetAndKeepsTheLink)
{
    const std::wstring target = file("target.ini");
    putBytes(target, "[S]\nk=1\n");
    const std::wstring link = file("link.ini");
    fs::create_symlink(diskPath(target), diskPath(link));
    ASSERT_TRUE(write(L"S", L"k", L"2", link));
    EXPECT_TRUE(fs::is_symlink(diskPath(link)));
    EXPECT_EQ(bytes(target), "[S]\nk=2\n");
    EXPECT_EQ(read(L"S", L"k", target), L"2");
}

TEST_F(Profile, ABatchReplacesTheFileOnceWhenItEnds)
{
    const std::wstring f = file("batch.ini");
    putBytes(f, "[S]\nfirst=1\n");
    const ino_t before = inode(f);
    {
        KoProfileBatch batch(f.c_str());
        for (int i = 0; i < 100; ++i)
            ASSERT_TRUE(write(L"S", KoString::format(L"k%d", i), KoString::format(L"%d", i), f));
        {
            KoProfileBatch inner(f.c_str());
            ASSERT_TRUE(write(L"T", L"inner", L"yes", f));
        }
        EXPECT_EQ(read(L"S", L"k50", f), L"50");  // the batch reads its own writes
        EXPECT_EQ(read(L"T", L"inner", f), L"yes");
        EXPECT_EQ(inode(f), before);
        EXPECT_EQ(bytes(f), "[S]\nfirst=1\n");
    }
    EXPECT_NE(inode(f), before);
    const std::string after = bytes(f);
    EXPECT_TRUE(after.starts_with("[S]\nfirst=1\nk0=0\nk1=1\n"));
    EXPECT_TRUE(after.ends_with("k99=99\n[T]\ninner=yes\n"));
}

TEST_F(Profile, ManyKeysSetAndDeletedInAnyOrderReadBackLikeAMap)
{
    const std::wstring f = file("many.ini");
    std::mt19937 random(11);
    std::map<int, std::wstring> model;  // key number -> value
    const auto check = [&] {
        int wrong = 0;
        for (int n = 0; n < 3000; ++n) {
            const auto it = model.find(n);
            const std::wstring expected = it == model.end() ? L"-" : it->second;
            wrong += read(L"s", (L"Key" + std::to_wstring(n)).c_str(), f, L"-") != expected;
        }
        EXPECT_EQ(wrong, 0);
        unsigned count = 0;
        const std::wstring list = readList(L"S", f, 1 << 16, &count);
        EXPECT_EQ(std::count(list.begin(), list.begin() + count, L'\0'), static_cast<long>(model.size()));
    };
    {
        KoProfileBatch batch(f.c_str());
        for (int i = 0; i < 20000; ++i) {
            const int n = static_cast<int>(random() % 3000);
            const std::wstring key = (random() % 2 ? L"key" : L"KEY") + std::to_wstring(n);
            if (random() % 3 == 0) {
                ASSERT_TRUE(write(L"S", key.c_str(), nullptr, f));
                model.erase(n);
            } else {
                ASSERT_TRUE(write(L"S", key.c_str(), std::to_wstring(i).c_str(), f));
                model[n] = std::to_wstring(i);
            }
        }
        check();
    }
    putBytes(f, bytes(f));  // the same text as a new file: parsed again
    check();
}

namespace {

std::string trimBlanks(const std::string& text)
{
    const size_t first = text.find_first_not_of(" \t");
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// The file as a list of lines, edited by the plain rules the functions
// follow: the first section of a name, the first key of a name in it, new
// keys after its last key, new sections at the end.
class LineModel {
public:
    explicit LineModel(const std::string& text)
    {
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) m_lines.push_back(line);
    }

    std::string text() const
    {
        std::string out;
        for (const std::string& line : m_lines) out += line + "\n";
        return out;
    }

    void set(const std::string& section, const std::string& key, const std::string& value)
    {
        size_t header = findSection(section);
        if (header == npos) {
            m_lines.push_back("[" + trim(section) + "]");
            header = m_lines.size() - 1;
        }
        if (const size_t line = findKey(header, key); line != npos) {
            std::string& text = m_lines[line];
            size_t at = text.find('=') + 1;
            while (at < text.size() && (text[at] == ' ' || text[at] == '\t')) ++at;
            text = text.substr(0, at) + value;
            return;
        }
        m_lines.insert(m_lines.begin() + static_cast<long>(lastKey(header)) + 1, trim(key) + "=" + value);
    }

    void erase(const std::string& section, const std::string& key)
    {
        const size_t header = findSection(section);
        const size_t line = header == npos ? npos : findKey(header, key);
        if (line != npos) m_lines.erase(m_lines.begin() + static_cast<long>(line));
    }

    void eraseSection(const std::string& section)
    {
        const size_t header = findSection(section);
        if (header == npos) return;
        m_lines.erase(m_lines.begin() + static_cast<long>(header), m_lines.begin() + static_cast<long>(end(header)));
    }

    void replaceSection(const std::string& section, const std::vector<std::string>& entries)
    {
        if (entries.empty()) return eraseSection(section);
        size_t header = findSection(section);
        if (header == npos) {
            m_lines.push_back("[" + trim(section) + "]");
            header = m_lines.size() - 1;
        }
        const auto first = m_lines.begin() + static_cast<long>(header) + 1;
        m_lines.erase(first, m_lines.begin() + static_cast<long>(lastKey(header)) + 1);
        m_lines.insert(m_lines.begin() + static_cast<long>(header) + 1, entries.begin(), entries.end());
    }

private:
    static constexpr size_t npos = std::string::npos;

    static std::string trim(const std::string& text) { return trimBlanks(text); }
    static std::string upper(std::string text)
    {
        for (char& ch : text) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
        return text;
    }
    static bool isSection(const std::string& line)
    {
        const std::string t = trim(line);
        return t.starts_with('[') && t.find(']') != npos;
    }
    static bool isKey(const std::string& line)
    {
        const std::string t = trim(line);
        return !t.empty() && t[0] != ';' && t[0] != '[' && t.find('=') != npos;
    }
    static std::string keyName(const std::string& line) { return upper(trim(line.substr(0, line.find('=')))); }

    size_t findSection(const std::string& name) const
    {
        for (size_t i = 0; i < m_lines.size(); ++i) {
            const std::string t = trim(m_lines[i]);
            if (isSection(t) && upper(trim(t.substr(1, t.rfind(']') - 1))) == upper(trim(name))) return i;
        }
        return npos;
    }
    size_t end(size_t header) const
    {
        size_t i = header + 1;
        while (i < m_lines.size() && !isSection(m_lines[i])) ++i;
        return i;
    }
    size_t findKey(size_t header, const std::string& key) const
    {
        for (size_t i = header + 1; i < end(header); ++i) {
            if (isKey(m_lines[i]) && keyName(m_lines[i]) == upper(trim(key))) return i;
        }
        return npos;
    }
    size_t lastKey(size_t header) const
    {
        size_t last = header;
        for (size_t i = header + 1; i < end(header); ++i) {
            if (isKey(m_lines[i])) last = i;
        }
        return last;
    }

    std::vector<std::string> m_lines;
};

}  // namespace

TEST_F(Profile, RandomEditsLeaveTheFileThePlainRulesGive)
{
    // Duplicate keys and sections, comments and blank lines, keys above the
    // first section: every rule of the file meets every kind of edit.
    const std::string start = "k=above\n; head\n\n[A]\nk1=1\nK1=dup\n; note\n k2 = 2\n\n[b]\nx=1\n[a]\nk1=second\n";
    const std::wstring f = file("random.ini");
    putBytes(f, start);
    LineModel model(start);
    std::mt19937 random(5);
    const std::vector<std::string> sections = {"A", "a", " b ", "B", "c", "Dee"};
    const std::vector<std::string> keys = {"k1", "K1", "k2", " x ", "y", "Zed"};
    const auto wide = [](const std::string& text) { return std::wstring(text.begin(), text.end()); };
    const auto pick = [&](const std::vector<std::string>& names) { return names[random() % names.size()]; };
    for (int round = 0; round < 40; ++round) {
        // Mostly inside a batch; now and then one write on its own.
        const bool batched = round % 4 != 3;
        std::optional<KoProfileBatch> batch;
        if (batched) batch.emplace(f.c_str());
        for (int i = 0; i < (batched ? 400 : 3); ++i) {
            const std::string section = pick(sections), key = pick(keys);
            const unsigned op = random() % 10;
            if (op < 6) {
                // Now and then a long value, so that rewritten text piles up.
                const std::string value = random() % 50 == 0 ? std::string(1 + random() % 200000, 'v')
                                                             : "v" + std::to_string(random() % 1000);
                ASSERT_TRUE(write(wide(section).c_str(), wide(key).c_str(), wide(value).c_str(), f));
                model.set(section, key, value);
            } else if (op < 8) {
                ASSERT_TRUE(write(wide(section).c_str(), wide(key).c_str(), nullptr, f));
                model.erase(section, key);
            } else if (op == 8) {
                ASSERT_TRUE(write(wide(section).c_str(), nullptr, nullptr, f));
                model.eraseSection(section);
            } else {
                std::vector<std::string> entries;
                std::wstring content;
                for (unsigned n = random() % 3; n > 0; --n) {
                    entries.push_back(trimBlanks(pick(keys)) + "=r" + std::to_string(n));
                    content += wide(entries.back()) + L'\0';
                }
                content += L'\0';
                ASSERT_TRUE(koWritePrivateProfileSection(wide(section).c_str(), content.c_str(), f.c_str()));
                model.replaceSection(section, entries);
            }
        }
        batch.reset();
        ASSERT_EQ(bytes(f), model.text()) << "after round " << round;
    }
}

TEST_F(Profile, ABatchReadsOneStateOfTheFileAndLocksItOnlyToWrite)
{
    const std::wstring f = file("reads.ini");
    putBytes(f, "[S]\nk=1\n");
    {
        KoProfileBatch batch(f.c_str());
        EXPECT_EQ(read(L"S", L"k", f), L"1");
        putBytes(f, "[S]\nk=2\nother=x\n");  // another program replaces the file
        EXPECT_EQ(read(L"S", L"k", f), L"1");   // the batch answers from the state it checked
        EXPECT_EQ(read(L"S", L"other", f, L"d"), L"d");
        EXPECT_TRUE(lockIsFree(f));  // reading leaves other processes free to write
        // The first write takes the lock and reads the file again, so the
        // other program's change is kept.
        ASSERT_TRUE(write(L"S", L"mine", L"y", f));
        EXPECT_FALSE(lockIsFree(f));
        EXPECT_EQ(read(L"S", L"k", f), L"2");
    }
    EXPECT_TRUE(lockIsFree(f));
    EXPECT_EQ(bytes(f), "[S]\nk=2\nother=x\nmine=y\n");

    // Outside a batch every read sees the file as it is now, and so does
    // the first read of the next batch.
    putBytes(f, "[S]\nk=3\n");
    EXPECT_EQ(read(L"S", L"k", f), L"3");
    putBytes(f, "[S]\nk=4\n");
    KoProfileBatch batch(f.c_str());
    EXPECT_EQ(read(L"S", L"k", f), L"4");
}

size_t openDescriptors() { return static_cast<size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), {})); }

TEST_F(Profile, ReadingManyFilesKeepsFewOpenAndADroppedFileIsReadAgain)
{
    const std::wstring first = file("first.ini");
    putBytes(first, "[S]\nk=old\n");
    EXPECT_EQ(read(L"S", L"k", first), L"old");
    // Changed in place with its stamp kept: only a copy parsed afresh sees it.
    struct stat before {};
    ASSERT_EQ(stat(diskPath(first).c_str(), &before), 0);
    std::ofstream(diskPath(first), std::ios::binary | std::ios::trunc) << "[S]\nk=new\n";
    const struct timespec times[2] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(utimensat(AT_FDCWD, diskPath(first).c_str(), times, 0), 0);

    // A batch with unwritten changes keeps its file however many others are read.
    const std::wstring batched = file("batched.ini");
    const size_t open = openDescriptors();
    {
        KoProfileBatch batch(batched.c_str());
        ASSERT_TRUE(write(L"S", L"k", L"kept", batched));
        for (int i = 0; i < 200; ++i) {
            const std::wstring other = file(("other" + std::to_string(i) + ".ini").c_str());
            putBytes(other, "[S]\nk=" + std::to_string(i) + "\n");
            ASSERT_EQ(read(L"S", L"k", other), std::to_wstring(i));
        }
        EXPECT_LE(openDescriptors(), open + 20);
        EXPECT_EQ(read(L"S", L"k", batched), L"kept");
    }
    EXPECT_EQ(bytes(batched), "[S]\nk=kept\n");
    EXPECT_LE(openDescriptors(), open + 20);
    EXPECT_EQ(read(L"S", L"k", first), L"new");
}

TEST_F(Profile, TwoProcessesWritingOneFileLoseNoKey)
{
    const std::wstring f = file("shared.ini");
    putBytes(f, "[Shared]\n");
    int start[2];
    ASSERT_EQ(pipe(start), 0);
    pid_t children[2];
    for (int c = 0; c < 2; ++c) {
        children[c] = fork();
        ASSERT_GE(children[c], 0);
        if (children[c] == 0) {
            close(start[1]);
            char ch;
            (void)!::read(start[0], &ch, 1);  // both begin when the parent closes the pipe
            bool ok = true;
            for (int i = 0; i < 300; ++i)
                ok = write(L"Shared", KoString::format(L"p%d_%d", c, i), KoString::format(L"%d", i), f) && ok;
            _exit(ok ? 0 : 1);
        }
    }
    close(start[0]);
    close(start[1]);
    for (pid_t child : children) {
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    int lost = 0;
    for (int c = 0; c < 2; ++c) {
        for (int i = 0; i < 300; ++i)
            lost += read(L"Shared", KoString::format(L"p%d_%d", c, i), f, L"lost") != KoString::format(L"%d", i).str();
    }
    EXPECT_EQ(lost, 0);
    // Nothing but the file and its lock is left in the folder.
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(m_folder)) names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"shared.ini", "shared.ini.lock"}));
}
