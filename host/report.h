// Reports for people and, as JSON, for machines.
#pragma once

#include <string>

#include "bench.h"
#include "listing.h"
#include "mix.h"
#include "run.h"

namespace host {

std::string text(const RunReport& report);
std::string json(const RunReport& report);

std::string text(const MixReport& report);
std::string json(const MixReport& report);

std::string text(const ModuleInfo& info);
std::string json(const ModuleInfo& info);

std::string text(const LayoutListing& listing);
std::string json(const LayoutListing& listing);

std::string text(const BenchReport& report);
std::string json(const BenchReport& report);

} // namespace host
