#pragma once

// What the commands that read welds from CSV files share.

#include "weld/WeldPublisher.h"
#include "weld/WeldSource.h"

#include <functional>

namespace TelvaneTool
{

class Command;

/// Adds the options that describe a CSV file.
void addRecordingOptions(Command& command, WeldSource::Options& options);

/// Adds the options for what the machine was set to.
void addSetupOptions(Command& command, WeldSetup& setup);

/// Publishes the welds in a stream of samples.
/// \param stopping  asked before each sample; true ends a weld in progress early
void publishWelds(SampleSource& samples, WeldPublisher& publisher, const WeldDetector::Settings& settings,
                  const std::function<bool()>& stopping);

} // namespace TelvaneTool
