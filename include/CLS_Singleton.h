#pragma once

#include <mutex>

// Makes T a process-wide single object, created on first demand and never deleted.
template <typename T>
class CLS_Singleton
{
public:
    virtual ~CLS_Singleton() = default;

    static T* GetInstance()
    {
        static std::mutex mutex;
        static T* s_pInstance = nullptr;
        std::lock_guard<std::mutex> lock(mutex);
        if (s_pInstance == nullptr) {
            s_pInstance = new T();
        }
        return s_pInstance;
    }
};
