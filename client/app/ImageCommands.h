#pragma once

#include <CLI/CLI.hpp>

#include "Compare.h"
#include "Transform.h"
#include "View.h"

namespace talven
{

/// The commands that work on images one by one, and their options.
CLI::App* AddTransform(CLI::App& rApp, TransformArgs& rArgs);
CLI::App* AddCompare(CLI::App& rApp, CompareArgs& rArgs);
CLI::App* AddView(CLI::App& rApp, ViewArgs& rArgs);

}  // namespace talven
