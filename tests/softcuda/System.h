#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <vector>

#include "tests/softcuda/Device.h"

namespace SoftCuda
{
enum class EKind
{
    eMemory,
    ePinned,
    eArray,
    eStream,
    eEvent
};

/// Something that the program holds by its address.
struct Owned
{
    EKind eKind;
    std::size_t tBytes;
    CDevice* pDevice;
    std::shared_ptr<void> pContent;
};

/// All of that. Readers do not order each other, so that this table hides no race between the
/// threads of two devices.
class COwners
{
public:
    void Add(const Owned& rOwned);
    void Remove(const void* pvBegin);
    void RemoveAll(const CDevice* pDevice);
    /// Owner of what begins there and of its bytes; null: no such.
    CDevice* Find(EKind eKind, const void* pvBegin, std::size_t* ptBytes = nullptr) const;
    /// Owner of the one memory of this kind that holds all the bytes; null: none.
    CDevice* FindAround(EKind eKind, const void* pvFirst, std::size_t tBytes) const;
    LiveObjects Count() const;

private:
    mutable std::shared_mutex m_aMutex;
    std::map<std::uintptr_t, Owned> m_aOwned;
};

/// Failures that a test asked for.
class CFailures
{
public:
    void Add(const std::string& strCall, cudaError_t eError, int iAfter);
    cudaError_t Take(const char* pcCall);  ///< of this call; cudaSuccess: none
    void Clear();

private:
    struct Failure
    {
        std::string strCall;
        cudaError_t eError;
        int iLeft;
    };
    std::atomic<bool> m_bAny = false;  // calls take the mutex only while a failure waits
    std::mutex m_aMutex;
    std::vector<Failure> m_vFailures;
};

struct System
{
    System();
    void SetFirstSettings();

    COwners aOwners;  // before the devices, whose end still uses it
    CFailures aFailures;
    std::atomic<int> iDevices;  // -1: no driver
    std::atomic<EOrder> eOrder;
    std::array<CDevice, 16> aDevices;
};
System& Sys();
}  // namespace SoftCuda
