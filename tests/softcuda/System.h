#pragma once

#include <array>
#include <atomic>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "tests/softcuda/Device.h"

namespace SoftCuda
{
/// Which device a handle belongs to. Readers do not order each other, so that this table hides no
/// race between the threads of two devices.
class CHandles
{
public:
    void Add(const void* pvHandle, CDevice* pDevice);
    void Remove(const void* pvHandle);
    CDevice* Find(const void* pvHandle) const;  ///< null: not a live handle

private:
    mutable std::shared_mutex m_aMutex;
    std::unordered_map<const void*, CDevice*> m_aOwners;
};

/// Page-locked host memory.
class CPinned
{
public:
    void* Allocate(std::size_t tBytes, CDevice* pDevice);
    bool Free(void* pvMemory);
    CDevice* FindOwner(const void* pvMemory) const;  ///< of an allocation's begin; null: none
    bool Holds(const void* pvFirst, std::size_t tBytes) const;
    int GetCount() const;
    void FreeAll();

private:
    struct Block
    {
        std::size_t tBytes;
        CDevice* pDevice;
    };
    mutable std::shared_mutex m_aMutex;
    std::map<std::uintptr_t, Block> m_aBlocks;
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
    static constexpr int iMaxDevices = 16;
    System();
    void SetFirstSettings();

    // The tables stand before the devices, whose end still uses them.
    CHandles aHandles;
    CPinned aPinned;
    CFailures aFailures;
    std::atomic<int> iDevices;  // -1: no driver
    std::atomic<EOrder> eOrder;
    std::array<CDevice, iMaxDevices> aDevices;
};
System& Sys();
}  // namespace SoftCuda
