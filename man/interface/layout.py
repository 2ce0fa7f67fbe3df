"""Where the fields of the records are, for systems of 32 and of 64 bits."""

from dataclasses import dataclass
from functools import cached_property

from headers import Header, Member, Unreadable

NUMBERS = {"char": 1, "uint8_t": 1, "uint16_t": 2, "int32_t": 4, "uint32_t": 4, "double": 8}
ADDRESSES = ("pthread_t", "NetCMEventCallback")


@dataclass
class Place:
    offset: int
    size: int


@dataclass
class Shape:
    size: int
    alignment: int
    places: dict[str, Place]  # by the field's name, "Qos.QosUmts" for a form of a union


def up_to(offset: int, alignment: int) -> int:
    return (offset + alignment - 1) // alignment * alignment


class Records:
    """The records of all headers, for one size of an address."""

    def __init__(self, headers: list[Header], address: int):
        self.address = address
        found = [d for h in headers for s in h.sections for item in s.items for d in item.declarations]
        self.numbers = {c.name: int(c.value) for d in found if d.kind == "define" for c in d.constants}
        self.members = {d.name: d.members for d in found if d.kind == "struct"}

    @cached_property
    def shapes(self) -> dict[str, Shape]:
        return {name: self.shape(members, False) for name, members in self.members.items()}

    def shape(self, members: list[Member], union: bool) -> Shape:
        end, alignment, places = 0, 1, {}
        for member in members:
            inner = self.inner(member)
            offset = 0 if union else up_to(end, inner.alignment)
            if member.name:
                places[member.name] = Place(offset, inner.size)
            for form, place in inner.places.items():
                places[f"{member.name}.{form}".strip(".")] = Place(offset + place.offset, place.size)
            end = max(end, offset + inner.size)
            alignment = max(alignment, inner.alignment)
        return Shape(up_to(end, alignment), alignment, places)

    def inner(self, member: Member) -> Shape:
        if member.type == "union":
            return self.shape(member.members, True)
        if member.type.endswith("*") or member.type in ADDRESSES:
            one = Shape(self.address, self.address, {})
        elif member.type in NUMBERS:
            one = Shape(NUMBERS[member.type], NUMBERS[member.type], {})
        elif member.type in self.members:
            one = self.shape(self.members[member.type], False)
        else:
            raise Unreadable(f"{member.name}: how large is '{member.type}'?")
        count = 1
        for dimension in member.dimensions:
            count *= self.numbers[dimension] if dimension in self.numbers else int(dimension)
        return Shape(one.size * count, one.alignment, {})


def assertions(headers: list[Header]) -> str:
    """A source in C that compiles where the compiler has the records as the pages have them."""
    lines = ["/* What the manual says about the records' layout. */", "#include <stddef.h>"]
    lines += [f"#include <quorvel/{header.name}>" for header in headers]
    for address in (4, 8):
        lines.append(f"#if __SIZEOF_POINTER__ == {address}")
        for name, shape in Records(headers, address).shapes.items():
            lines.append(f'_Static_assert(sizeof({name}) == {shape.size}, "{name}");')
            for field, place in shape.places.items():
                lines.append(f"_Static_assert(offsetof({name}, {field}) == {place.offset} &&"
                             f' sizeof((({name} *)0)->{field}) == {place.size}, "{name}.{field}");')
        lines.append("#endif")
    return "\n".join(lines) + "\n"
