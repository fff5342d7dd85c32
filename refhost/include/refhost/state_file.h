// Whose the files of a state directory are.
#pragma once

#include <filesystem>

namespace refhost {

// Files of a state directory belong to the directory's owner and group, whoever makes them: what root prepares, the
// service's own user can use. They are for the owner alone (0600), for the group too (0660) where it may write in the
// directory.

// Open a file of the directory for reading and writing, making it when missing; a link is not followed. When it is new,
// or when root finds one that another owns, it is given to the directory's owner. Returns the descriptor, else -1 with
// errno. Any thread may call.
int open_state_file(const std::filesystem::path& file);

// The same rule for a file or socket that something else has made, if it is there. What the system refuses stays as it
// is.
void give_to_directorys_owner(const std::filesystem::path& file);

}  // namespace refhost
