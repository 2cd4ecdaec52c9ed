// SPDX-License-Identifier: Apache-2.0
'use strict';

// How things are written, and the only place where text becomes part of the page. Texts of
// events are never anything but text nodes.

// Characters that move what stands beside them, or are not seen at all.
const CONTROLS = /[\u0000-\u001f\u007f-\u009f\u061c\u200e\u200f\u2028-\u202e\u2066-\u2069\ufeff]/;

/**
 * Makes an element. Properties are set as properties, those with a dash and role as
 * attributes. Children are nodes or texts.
 */
function make(tag, properties, ...children) {
    const element = document.createElement(tag);
    for (const [name, value] of Object.entries(properties || {})) {
        if (name.includes('-') || name === 'role') {
            element.setAttribute(name, value);
        } else {
            element[name] = value;
        }
    }
    element.append(...children);
    return element;
}

function byId(id) {
    return document.getElementById(id);
}

function escapeOf(character) {
    const code = character.charCodeAt(0);
    return code < 0x100
        ? '\\x' + code.toString(16).padStart(2, '0')
        : '\\u' + code.toString(16).padStart(4, '0');
}

/** Appends plain text to a node, with what is searched for marked in it. */
function appendMarked(node, text, needle) {
    const lower = needle ? text.toLowerCase() : '';
    let begin = 0;
    if (needle && lower.length === text.length) {
        for (let at = lower.indexOf(needle); at >= 0; at = lower.indexOf(needle, begin)) {
            node.append(text.slice(begin, at), make('mark', null, text.slice(at, at + needle.length)));
            begin = at + needle.length;
        }
    }
    node.append(text.slice(begin));
}

/**
 * A text of an event: isolated, so that its direction ends with it, and with control
 * characters shown as what they are. Those in `kept` stay.
 */
function shownText(text, {needle = '', kept = ''} = {}) {
    const node = make('bdi');
    if (!CONTROLS.test(text)) {
        appendMarked(node, text, needle);
        return node;
    }
    let plain = '';
    for (const character of text) {
        if (!CONTROLS.test(character) || kept.includes(character)) {
            plain += character;
            continue;
        }
        appendMarked(node, plain, needle);
        plain = '';
        node.append(make('span', {className: 'escape'}, escapeOf(character)));
    }
    appendMarked(node, plain, needle);
    return node;
}

/** The start of a text; whole characters. */
function cut(text, most) {
    if (text.length <= most) {
        return text;
    }
    const isPair = (text.charCodeAt(most - 1) & 0xfc00) === 0xd800;
    return text.slice(0, isPair ? most - 1 : most) + '…';
}

/** 12345 as 12,345; thin enough to be read in any country. */
function grouped(number) {
    return String(number).replace(/\B(?=(\d{3})+$)/g, ',');
}

function counted(number, what) {
    return `${grouped(number)} ${what}${number === 1 ? '' : 's'}`;
}

function bytesText(size) {
    const units = ['bytes', 'KiB', 'MiB', 'GiB'];
    let unit = 0;
    while (size >= 1024 && unit < units.length - 1) {
        size /= 1024;
        unit += 1;
    }
    return `${unit === 0 ? size : size.toFixed(1)} ${units[unit]}`;
}

const two = (number) => String(number).padStart(2, '0');

/** Times in one zone: that of the reader's machine, or UTC. Years have four digits. */
class Clock {
    constructor(isUtc) {
        this.isUtc = isUtc;
    }

    parts(seconds) {
        const date = new Date(seconds * 1000);
        return this.isUtc
            ? [date.getUTCFullYear(), date.getUTCMonth() + 1, date.getUTCDate(),
               date.getUTCHours(), date.getUTCMinutes(), date.getUTCSeconds()]
            : [date.getFullYear(), date.getMonth() + 1, date.getDate(),
               date.getHours(), date.getMinutes(), date.getSeconds()];
    }

    /** Seconds that local time is ahead. */
    offset(seconds) {
        return this.isUtc ? 0 : -60 * new Date(seconds * 1000).getTimezoneOffset();
    }

    date(seconds) {
        const [year, month, day] = this.parts(seconds);
        return `${String(year).padStart(4, '0')}-${two(month)}-${two(day)}`;
    }

    time(seconds) {
        const [, , , hours, minutes, rest] = this.parts(seconds);
        return `${two(hours)}:${two(minutes)}:${two(rest)}`;
    }

    /** With all six digits. */
    exact(seconds, microseconds) {
        return `${this.date(seconds)} ${this.time(seconds)}.${String(microseconds).padStart(6, '0')}`;
    }

    zone(seconds) {
        const minutes = Math.round(this.offset(seconds) / 60);
        if (minutes === 0) {
            return this.isUtc ? 'UTC' : '+00:00';
        }
        const size = Math.abs(minutes);
        return `${minutes < 0 ? '-' : '+'}${two(Math.floor(size / 60))}:${two(size % 60)}`;
    }
}

/** How long something takes, in the unit that suits it. */
function durationText(seconds) {
    const units = [[86400, 'd'], [3600, 'h'], [60, 'min'], [1, 's'], [1e-3, 'ms'], [1e-6, 'µs']];
    const [size, name] = units.find(([each]) => seconds >= each) || units[units.length - 1];
    return `${Number((seconds / size).toPrecision(3))} ${name}`;
}
