#pragma once

/// Binds the calling thread to one device of the backend in use.
class CDeviceCtx
{
public:
    int GetDeviceCount() const;
    /// Prints one "Error: " line when there is no such device or it cannot be selected.
    void SetDevice(int iDevice);
    int GetDevice() const { return m_iDevice; }  ///< -1 until SetDevice

private:
    int m_iDevice = -1;
};
