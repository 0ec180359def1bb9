// Elements with text. Everything from the bus goes through here, and only ever as text.
export const $ = (id) => document.getElementById(id);

export function element(name, attributes = {}, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) {
    key === "class" ? (made.className = value) : made.setAttribute(key, value);
  }
  made.append(...children.map((child) => (child instanceof Node ? child : document.createTextNode(String(child)))));
  return made;
}

export function setText(target, text) {
  if (target.textContent !== text) {
    target.textContent = text;
  }
}

// Fills a table without making new rows, so that the selection, the focus and the scroll position stay.
export function fillTable(table, heads, rows) {
  const key = heads.join("\n");
  if (table.dataset.heads !== key) {
    table.dataset.heads = key;
    table.replaceChildren(element("thead", {}, element("tr", {}, ...heads.map((head) => element("th", {scope: "col"}, head)))),
      element("tbody"));
  }
  const body = table.tBodies[0];
  while (body.rows.length > rows.length) {
    body.deleteRow(-1);
  }
  rows.forEach((cells, index) => {
    const row = body.rows[index] ?? body.insertRow();
    cells.forEach((cell, column) => {
      const place = row.cells[column] ?? row.insertCell();
      if (cell instanceof Node) {
        if (place.firstChild !== cell) {
          place.replaceChildren(cell);
        }
      } else {
        setText(place, String(cell));
      }
    });
  });
}
