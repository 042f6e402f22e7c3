/// What the adapter imports from the vendor's context library at link time.
#pragma once

/// Declared as a class on the device; only this static operation is used.
class ChiContextInterface {
  public:
    /// Fills `settings` for `value`; both belong to the vendor's sensor interface. Returns a vendor
    /// status.
    static int CreateSensorInitSettings(int& settings, int value);
};

/// The vendor's debug settings block, as an array of bytes. Bit 6 of byte 65 enables trace points.
/// Only the vendor writes it, at any time, so that it must not be declared constant.
extern "C" unsigned char g_enableChxLogs[];
