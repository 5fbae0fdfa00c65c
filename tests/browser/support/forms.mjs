// What tests do with pages, in the words of those who use them.
import { PATIENCE, until } from "./until.mjs";

const matches = (text, expected) => (expected instanceof RegExp ? expected.test(text) : text === expected);
const inOneLine = (text) => text.replace(/\s+/g, " ").trim();

// Until the element shows this text and no other, or one that fits the pattern.
export async function shows(locator, expected) {
  let last = "(nothing)";
  const holds = async () => {
    const texts = await locator.allInnerTexts();
    last = texts.map(inOneLine).join(" | ");
    return texts.length === 1 && matches(last, expected);
  };
  await until("", holds).catch(() => { throw new Error(`shows ${JSON.stringify(last)}, not ${expected}`); });
}

export const texts = async (locator) => (await locator.allInnerTexts()).map(inOneLine);

// Presses a button or follows a link, and waits for the page that it leads to.
export async function follow(page, locator) {
  const loaded = page.waitForEvent("load", { timeout: PATIENCE });
  await locator.click();
  await loaded;
}

export const button = (page, value) =>
  page.locator(`input[type=submit][value="${value}"], input[type=button][value="${value}"]`);

export const submit = (page, value) => follow(page, button(page, value));

// The check box that is named after the thing in its row.
export const box = (page, name) => page.locator(`input[type=checkbox][name=${JSON.stringify(name)}]`);

// The row that the box stands in.
export const rowOf = (page, name) => page.locator("tr", { has: box(page, name) });

export async function tickAnd(page, names, value) {
  for (const name of names) await box(page, name).check();
  await submit(page, value);
}

export const row = (page, words) => page.locator("tr", { hasText: words });

// The value beside a label.
export const field = (page, label) =>
  page.locator("tr", { has: page.locator(`td.tableViewIndex:text-is("${label}")`) }).locator("td").nth(1);
