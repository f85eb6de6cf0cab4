#pragma once

#include "picture.h"

#include <filesystem>
#include <vector>

/// What the stand-in service recorded, for the picture.
std::vector<Mark> serviceMarks(const std::filesystem::path& record);
