#include "examples/trip-recorder/Recorder.h"

#include "Gpio/LedsController.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

namespace TripRecorder
{

namespace
{

// Of the event driver's triggers.
constexpr int IGNITION_ON = 1;
constexpr int IGNITION_OFF = 2;
constexpr int POWER_OFF = 4;

/// "20260301-081500": the card's file system takes no colons.
std::string NameOf(const Examples::Block& block)
{
    std::string name = block.date + block.time;
    std::erase_if(name, [](char c) { return c == '-' || c == ':'; });
    return name.insert(8, "-");
}

}

Recorder::Recorder(std::string cardDirectory) : directory(std::move(cardDirectory))
{
    ShowState();
}

void Recorder::TakeEvent(int code)
{
    powerOff = powerOff || code == POWER_OFF;
    ignition = code == IGNITION_ON || (ignition && code != IGNITION_OFF);
    if (!ignition)
    {
        EndTrip();
    }
    ShowState();
}

void Recorder::TakePosition(const Examples::Block& block)
{
    hasPosition = block.position && !block.date.empty() && !block.time.empty();
    if (ignition && hasPosition)
    {
        OnCard([&] {
            if (!trip)
            {
                name = name.empty() ? NameOf(block) : name;
                std::filesystem::create_directories(directory);
                trip.emplace(directory, name);
                std::printf("trip %s begins\n", trip->name.c_str());
            }
            trip->Add(block, driver, remark);
            remark.clear();
        });
    }
    ShowState();
}

void Recorder::TakeDriver(const std::string& id)
{
    driver = id;
    Remark("driver " + id);
    ShowState();
}

void Recorder::TakeBraking(double g)
{
    const long tenths = std::lround(g * 10);
    Remark("harsh braking " + std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " g");
}

void Recorder::EndTrip()
{
    if (trip)
    {
        OnCard([this] { trip->Sync(); });
        std::printf("trip %s ends\n", trip->name.c_str());
        trip.reset();
        driver.clear();
    }
    name.clear();
    remark.clear();
}

void Recorder::Remark(const std::string& text)
{
    std::puts(text.c_str());
    remark += (remark.empty() ? "" : "; ") + text;
}

/// What fails is tried again with the next position.
void Recorder::OnCard(const std::function<void()>& operation)
{
    try
    {
        operation();
        cardFails = false;
    }
    catch (const std::system_error& failure)
    {
        if (!std::exchange(cardFails, true))
        {
            std::fprintf(stderr, "storage card: %s\n", failure.what());
        }
    }
}

void Recorder::ShowState() const
{
    using Led = Tavdevice::Gpio::LedController;
    auto& leds = *Tavdevice::Gpio::LedsController::GetInstance();
    leds.SetLedMode(true, !ignition ? Led::RedOn : driver.empty() ? Led::GreenBlink450 : Led::GreenOn);
    leds.SetLedMode(false, cardFails ? Led::RedBlink450 : hasPosition ? Led::GreenOn : Led::RedOn);
}

}
