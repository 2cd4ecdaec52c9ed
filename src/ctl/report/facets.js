// SPDX-License-Identifier: Apache-2.0

// How many records there are of each event, service, path and level; each is a filter, too.

const MOST_ENTRIES = 200;

/** A list of what there is of one kind, the most frequent first. */
class Facet {
    /** `entries` says of each index what it is called; `toggle(index)` is called for a choice. */
    constructor(name, entries, toggle) {
        this.entries = entries;
        this.toggle = toggle;
        this.list = byId(`${name}s`);
        this.total = byId(`${name}-total`);
        this.list.addEventListener('click', (event) => {
            const button = event.target.closest('button');
            if (button) {
                this.toggle(Number(button.dataset.index));
            }
        });
    }

    show(counts, chosen) {
        const focused = this.list.contains(document.activeElement) ? document.activeElement.dataset.index : null;
        const order = [...counts.keys()].filter((index) => counts[index] > 0 || chosen.has(index));
        order.sort((a, b) => counts[b] - counts[a] || a - b);
        const most = order.length > 0 ? Math.max(1, counts[order[0]]) : 1;
        const shown = order.slice(0, MOST_ENTRIES);
        this.list.replaceChildren(...shown.map((index) => this.makeEntry(index, counts[index], most, chosen)));
        if (order.length > shown.length) {
            this.list.append(make('li', {className: 'more'}, `and ${grouped(order.length - shown.length)} more`));
        }
        this.total.textContent = grouped(order.length);
        if (focused !== null) {
            const button = this.list.querySelector(`[data-index="${focused}"]`);
            (button || this.list).focus();
        }
    }

    makeEntry(index, count, most, chosen) {
        const {text, title, kind} = this.entries(index);
        const bar = make('span', {className: 'bar'});
        bar.style.width = `${100 * count / most}%`;
        const name = make('span', {className: 'name'}, shownText(cut(text, 120)));
        if (kind) {
            name.prepend(make('span', {className: `dot ${kind}`}));
        }
        const button = make('button', {type: 'button', title: title || '',
                                       'aria-pressed': chosen.has(index)},
            bar, name, make('span', {className: 'count'}, grouped(count)));
        button.dataset.index = index;
        return make('li', null, button);
    }
}

/** The levels as a row of switches. */
class LevelSwitches {
    constructor(log, toggle) {
        this.buttons = log.levels.map(({name, kind}, index) => {
            const count = make('span', {className: 'count'});
            const button = make('button', {type: 'button', className: 'switch', 'aria-pressed': false},
                make('span', {className: `dot ${kind}`}), shownText(cut(name, 24)), count);
            button.addEventListener('click', () => toggle(index));
            return {button, count};
        });
        byId('levels').append(...this.buttons.map(({button}) => button));
    }

    show(counts, chosen) {
        this.buttons.forEach(({button, count}, index) => {
            count.textContent = grouped(counts[index]);
            button.setAttribute('aria-pressed', chosen.has(index));
        });
    }
}
