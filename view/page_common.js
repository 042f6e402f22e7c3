// What the scripts of all pages share.
"use strict";
const byId = (id) => document.getElementById(id);
const dataOf = (id) => JSON.parse(byId(id).textContent);

// --- Words and elements --------------------------------------------------------------------------

/** An element; texts among the children stay texts, whatever is in them. */
function make(tag, attributes = {}, ...children) {
    const element = document.createElement(tag);
    for (const [name, value] of Object.entries(attributes)) {
        if (value !== null && value !== undefined && value !== false) {
            element.setAttribute(name, value);
        }
    }
    element.append(...children.filter((child) => child !== null && child !== undefined));
    return element;
}
const link = (hash, text) => make("a", { href: "#" + hash }, text);
const count = (number, noun) => `${number} ${noun}${number === 1 ? "" : "s"}`;
const hide = (id) => { byId(id).hidden = true; };

/** Numbers by size, texts by alphabet, and what is not there last, in either direction. */
function compare(one, other, direction) {
    const isMissing = (value) => value === null || value === undefined || value === "";
    if (isMissing(one) || isMissing(other)) {
        return isMissing(one) - isMissing(other);
    }
    const order = typeof one === "number" && typeof other === "number"
        ? one - other : String(one).localeCompare(String(other), "en", { numeric: true });
    return order * direction;
}

/**
 * A table into a place of the page. A column has a title, `of`, which gives a row's value to sort
 * by, and maybe `show`, which gives what stands there instead. Long tables grow on demand.
 */
class Table {
    constructor(place, caption, columns, { limit = 500, idOf = null, sortable = true } = {}) {
        Object.assign(this, { columns, limit, idOf, rows: [], sorted: null, direction: 1 });
        this.head = make("tr");
        this.body = make("tbody");
        this.more = make("button", { type: "button", hidden: "" });
        this.more.addEventListener("click", () => { this.limit = Infinity; this.draw(); });
        columns.forEach((column, index) => {
            const button = sortable ? make("button", { type: "button" }, column.title)
                : column.title;
            this.head.append(make("th", { scope: "col", class: column.kind }, button));
            if (sortable) {
                button.addEventListener("click", () => this.sort(index));
            }
        });
        place.replaceChildren(
            make("div", { class: "scroll", tabindex: "0", role: "region", "aria-label": caption },
                make("table", {}, make("caption", {}, caption), make("thead", {}, this.head),
                    this.body)), this.more);
    }
    fill(rows) {
        this.rows = rows.slice();
        this.order();
    }
    sort(index) {
        this.direction = this.sorted === index ? -this.direction : 1;
        this.sorted = index;
        [...this.head.children].forEach((cell, i) => {
            cell.toggleAttribute("aria-sort", i === index);
            if (i === index) {
                cell.setAttribute("aria-sort", this.direction > 0 ? "ascending" : "descending");
            }
        });
        this.order();
    }
    order() {
        if (this.sorted !== null) {
            const of = this.columns[this.sorted].of;
            this.rows.sort((one, other) => compare(of(one), of(other), this.direction));
        }
        this.draw();
    }
    draw() {
        const shown = this.rows.slice(0, this.limit);
        this.body.replaceChildren(...shown.map((row) => {
            const cells = this.columns.map(({ of, show, kind }) =>
                make("td", { class: kind }, ...[(show ?? of)(row) ?? ""].flat()));
            const id = this.idOf?.(row);
            return make("tr", { id, tabindex: id ? "-1" : null,
                "aria-current": id && id === this.current ? "true" : null }, ...cells);
        }));
        this.more.hidden = shown.length === this.rows.length;
        this.more.textContent = `Show all ${this.rows.length}`;
    }
    /** Marks a row, which may be none. Returns it. */
    mark(id) {
        this.current = id;
        if (id && !byId(id)) {
            this.limit = Infinity;
            this.draw();
        }
        for (const row of this.body.children) {
            row.removeAttribute("aria-current");
        }
        const row = id ? byId(id) : null;
        row?.setAttribute("aria-current", "true");
        return row;
    }
}

/** Copies what an element shows, and says so in another. */
async function copyText(from, status) {
    let isDone = true;
    try {
        await navigator.clipboard.writeText(from.textContent);
    } catch { // Older browsers have no clipboard for a file.
        getSelection().selectAllChildren(from);
        isDone = document.execCommand("copy");
    }
    status.textContent = isDone ? "Copied" : "Not copied: select it and copy it";
}
