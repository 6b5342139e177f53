#include "platform/file.h"

#include <algorithm>
#include <memory>
#include <vector>

#include "platform/error.h"
#include "platform/win32/errors.h"
#include "platform/win32/paths.h"
#include "platform/win32/system.h"

namespace tvr::platform {

namespace {

constexpr DWORD known_attributes =
    attribute::read_only | attribute::directory | attribute::archive | attribute::temporary;

bool is_dots(std::string_view name) {
    return name == "." || name == "..";
}

bool comes_first(const directory_entry& a, const directory_entry& b) {
    return is_dots(a.name) != is_dots(b.name) ? is_dots(a.name) : a.name < b.name;
}

directory_entry entry_of(const WIN32_FIND_DATAA& found) {
    // deliberate: a link counts as a file, so that whoever cleans a folder doesn't follow it
    if ((found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
        return {found.cFileName, attribute::archive};
    return {found.cFileName, found.dwFileAttributes & known_attributes};
}

} // namespace

struct directory_search::state {
    std::vector<directory_entry> entries; // all matches of the moment when the search began
    std::size_t next = 0;

    bool collect(const std::string& pattern) {
        WIN32_FIND_DATAA found{};
        const HANDLE search = FindFirstFileA(pattern.c_str(), &found);
        if (search == INVALID_HANDLE_VALUE)
            return win32::fail_last();
        const std::unique_ptr<void, BOOL(WINAPI*)(HANDLE)> owner(search, FindClose);
        do
            entries.push_back(entry_of(found));
        while (FindNextFileA(search, &found));
        const DWORD end = GetLastError();
        std::sort(entries.begin(), entries.end(), comes_first);
        return end == ERROR_NO_MORE_FILES || win32::fail(end);
    }
};

directory_search::directory_search() noexcept = default;
directory_search::~directory_search() = default;

bool directory_search::first(std::string_view pattern, directory_entry& entry) {
    close();
    auto search = std::make_unique<state>();
    if (!search->collect(win32::native_path(pattern)))
        return false;
    m_state = std::move(search);
    return next(entry);
}

bool directory_search::next(directory_entry& entry) {
    if (!m_state)
        return win32::fail(error::invalid_handle);
    if (m_state->next == m_state->entries.size())
        return win32::fail(error::no_more_files);
    entry = m_state->entries[m_state->next++];
    return true;
}

void directory_search::close() noexcept {
    m_state.reset();
}

} // namespace tvr::platform
