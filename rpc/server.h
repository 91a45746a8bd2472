#pragma once

/// Start function of the module's RPC thread: registers program 0x2000001d, version 1. The argument
/// is not used; the result is null.
void* rpcL2CPStart(void* interruptionHook);
