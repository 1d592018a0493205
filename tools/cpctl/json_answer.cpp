// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/json_answer.h"

namespace cpctl
{

std::string json_text(const Json &answer, JsonOutput output)
{
	constexpr int indent = 4;
	return answer.dump(output == JsonOutput::pretty ? indent : -1, ' ', true, Json::error_handler_t::replace);
}

void print_json(const Session &session, const Json &answer)
{
	session.print(json_text(answer, session.json));
}

} // namespace cpctl
