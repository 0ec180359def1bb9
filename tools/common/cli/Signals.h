#pragma once

namespace TelvaneTool
{

/// Takes SIGINT, SIGTERM and SIGHUP, as far as they are not ignored, out of their normal course, so that they
/// can be read. To be called before
/// the first thread is started, which inherits it. Also ignores SIGPIPE and sees to it that descriptors 0 to
/// 2 are taken: a socket that got the number of a closed standard output would receive our data.
void prepareProcess();

/// \return a descriptor that becomes readable when one of the signals arrives
int openSignals();

/// \return the number of the next signal, or 0 when there is none
int readSignal(int fd);

} // namespace TelvaneTool
