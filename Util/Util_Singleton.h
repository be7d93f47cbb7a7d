#pragma once

#include <memory>

/// Base of the objects that a process has one of: class T : public Util_Singleton<T>.
template <class T>
class Util_Singleton
{
public:
    static T* GetInstance()  ///< made on first use
    {
        if (!m_pInstance) m_pInstance = std::make_unique<T>();
        return m_pInstance.get();
    }
    static void DeleteInstance() { m_pInstance.reset(); }
    Util_Singleton(const Util_Singleton&) = delete;
    Util_Singleton& operator=(const Util_Singleton&) = delete;

protected:
    Util_Singleton() = default;
    ~Util_Singleton() = default;

private:
    inline static std::unique_ptr<T> m_pInstance;
};
