/// \file
/// The whole library: this header is enough for any application.
#pragma once

#include <Telvane/Ascii85.h>
#include <Telvane/AutomationStatus.h>
#include <Telvane/BoolFlag.h>
#include <Telvane/Consumables.h>
#include <Telvane/DateTime.h>
#include <Telvane/DeviceRecords.h>
#include <Telvane/EventClient.h>
#include <Telvane/EventClientSynchronizer.h>
#include <Telvane/EventServer.h>
#include <Telvane/MemorySlotRecords.h>
#include <Telvane/ModuleRecords.h>
#include <Telvane/PSCommand.h>
#include <Telvane/PSFeedback.h>
#include <Telvane/PSMemorySlot.h>
#include <Telvane/PSPrimitives.h>
#include <Telvane/PSWeldCommand.h>
#include <Telvane/PanelRecords.h>
#include <Telvane/RecordCatalogue.h>
#include <Telvane/RecordTable.h>
#include <Telvane/RequestType.h>
#include <Telvane/RtaModuleRecords.h>
#include <Telvane/TelvaneDataTypeBase.h>
#include <Telvane/WeldRecords.h>
#include <Telvane/WireComputations.h>
