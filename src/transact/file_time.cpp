#include "transact/file_time.h"

#include "common/file_stream.h"
#include "common/files.h"
#include "stage/temp_folder.h"

namespace tvr {

void write_file_time(std::string_view path, std::uint64_t time) {
    file_stream mark;
    if (mark.create_to_write(path))
        mark.write(&time, sizeof time);
    mark.close();
    bring_to_disk({std::string(path), folder_of(path)});
}

} // namespace tvr
