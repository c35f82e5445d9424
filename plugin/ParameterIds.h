#pragma once

/** The two ways a parameter is numbered. An engine id is the engine's own number for a value:
    what its setParameterValue takes and what states and presets store. A public index is the
    value's place in the list hosts see. The two agree for a few parameters only (Kelfiner's
    emphasis points are interleaved for hosts), so each has a type of its own and the compiler
    refuses one where the other is meant; only the processor converts between them. */
struct EngineParameterId
{
    constexpr explicit EngineParameterId (int id) noexcept : value (id) {}
    friend constexpr bool operator== (EngineParameterId a, EngineParameterId b) noexcept
    {
        return a.value == b.value;
    }
    friend constexpr bool operator!= (EngineParameterId a, EngineParameterId b) noexcept
    {
        return a.value != b.value;
    }
    int value;
};

/** A parameter's place in the host's list; -1 for none. */
struct PublicParameterIndex
{
    constexpr explicit PublicParameterIndex (int index) noexcept : value (index) {}
    constexpr bool isValid() const noexcept { return value >= 0; }
    friend constexpr bool operator== (PublicParameterIndex a, PublicParameterIndex b) noexcept
    {
        return a.value == b.value;
    }
    friend constexpr bool operator!= (PublicParameterIndex a, PublicParameterIndex b) noexcept
    {
        return a.value != b.value;
    }
    int value;
};
